// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI CheckDll(MSIHANDLE) {
    return ERROR_SUCCESS;
}
