// AddRemovedComponents (immediate): kept for packages that schedule it; there
// is nothing to add, so it changes nothing and succeeds.
#include "exports.h"

extern "C" UINT WINAPI AddRemovedComponents(MSIHANDLE /*session*/) {
    return ERROR_SUCCESS;
}
