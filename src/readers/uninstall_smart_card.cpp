// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI UninstallSmartCard(MSIHANDLE) {
    return ERROR_SUCCESS;
}
