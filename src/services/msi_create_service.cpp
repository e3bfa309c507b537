// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI MsiCreateService(MSIHANDLE) {
    return ERROR_SUCCESS;
}

extern "C" UINT WINAPI MsiCreateServiceRollback(MSIHANDLE) {
    return ERROR_SUCCESS;
}

