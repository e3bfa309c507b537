// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI MigrateReaders(MSIHANDLE) {
    return ERROR_SUCCESS;
}
