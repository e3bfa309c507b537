// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI UpdateSystemIntegrity(MSIHANDLE) {
    return ERROR_SUCCESS;
}

