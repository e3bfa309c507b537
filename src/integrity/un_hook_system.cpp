// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI UnHookSystem(MSIHANDLE) {
    return ERROR_SUCCESS;
}

