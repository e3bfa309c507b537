// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI AnotherCSPDetected(MSIHANDLE) {
    return ERROR_SUCCESS;
}
