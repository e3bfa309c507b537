// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI InitializeHardRngUser(MSIHANDLE) {
    return ERROR_SUCCESS;
}
