// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI ClearWrongUserCertificateProperties(MSIHANDLE) {
    return ERROR_SUCCESS;
}

extern "C" UINT WINAPI ClearWrongMachineCertificateProperties(MSIHANDLE) {
    return ERROR_SUCCESS;
}
