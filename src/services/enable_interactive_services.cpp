// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI EnableInteractiveServices(MSIHANDLE) {
    return ERROR_SUCCESS;
}

