// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI SetNoInteractiveServices(MSIHANDLE) {
    return ERROR_SUCCESS;
}

