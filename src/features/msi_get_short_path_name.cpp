// TODO: not built yet.
#include "exports.h"

extern "C" UINT WINAPI MsiGetShortPathName(MSIHANDLE /*session*/) {
    return ERROR_INSTALL_FAILURE;
}
