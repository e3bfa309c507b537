// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI CheckModeOn(MSIHANDLE) {
    return ERROR_SUCCESS;
}

extern "C" UINT WINAPI CheckModeOff(MSIHANDLE) {
    return ERROR_SUCCESS;
}

