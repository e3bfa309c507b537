// TODO: not built yet.
#include "exports.h"

extern "C" UINT WINAPI DelNVCryptographyKey(MSIHANDLE /*session*/) {
    return ERROR_INSTALL_FAILURE;
}
