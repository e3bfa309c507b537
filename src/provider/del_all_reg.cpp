// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI DelAllReg(MSIHANDLE) {
    return ERROR_SUCCESS;
}
