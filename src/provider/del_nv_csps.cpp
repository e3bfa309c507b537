// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI DelNVCSPs(MSIHANDLE) {
    return ERROR_SUCCESS;
}
