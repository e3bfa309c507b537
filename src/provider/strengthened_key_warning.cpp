// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI StrengthenedKeyWarning(MSIHANDLE) {
    return ERROR_SUCCESS;
}
