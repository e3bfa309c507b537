// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI FixPrivateKeyLinks(MSIHANDLE) {
    return ERROR_SUCCESS;
}
