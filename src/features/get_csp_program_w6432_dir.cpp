// TODO: not built yet.
#include "exports.h"

extern "C" UINT WINAPI GetCSPProgramW6432Dir(MSIHANDLE /*session*/) {
    return ERROR_INSTALL_FAILURE;
}
