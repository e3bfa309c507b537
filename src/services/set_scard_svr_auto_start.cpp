// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI SetSCardSvrAutoStart(MSIHANDLE) {
    return ERROR_SUCCESS;
}

