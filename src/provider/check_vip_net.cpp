// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI CheckVipNet(MSIHANDLE) {
    return ERROR_SUCCESS;
}
