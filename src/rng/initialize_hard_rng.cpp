// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI InitializeHardRng(MSIHANDLE) {
    return ERROR_SUCCESS;
}
