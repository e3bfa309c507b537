// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI SetupCSPTest(MSIHANDLE) {
    return ERROR_SUCCESS;
}
