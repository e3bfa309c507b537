// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI UnprotectService(MSIHANDLE) {
    return ERROR_SUCCESS;
}

