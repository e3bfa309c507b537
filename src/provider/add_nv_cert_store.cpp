// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI AddNVCertStore(MSIHANDLE) {
    return ERROR_SUCCESS;
}
