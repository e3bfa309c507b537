// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI SslRegInstall(MSIHANDLE) {
    return ERROR_SUCCESS;
}

