// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI FixDefaultProvider(MSIHANDLE) {
    return ERROR_SUCCESS;
}
