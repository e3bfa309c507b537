// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI HiberbootDisable(MSIHANDLE) {
    return ERROR_SUCCESS;
}

