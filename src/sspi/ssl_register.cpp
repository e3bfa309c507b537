// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI SslRegister(MSIHANDLE) {
    return ERROR_SUCCESS;
}

