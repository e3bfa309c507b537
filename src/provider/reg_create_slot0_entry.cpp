// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI RegCreateSlot0Entry(MSIHANDLE) {
    return ERROR_SUCCESS;
}
