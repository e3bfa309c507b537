// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI SslRegRollback(MSIHANDLE) {
    return ERROR_SUCCESS;
}

