// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI TlsRegUninstall(MSIHANDLE) {
    return ERROR_SUCCESS;
}

