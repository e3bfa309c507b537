// TODO: not built yet.
#include "exports.h"

extern "C" UINT WINAPI UninstallTLS2(MSIHANDLE /*session*/) {
    return ERROR_INSTALL_FAILURE;
}
