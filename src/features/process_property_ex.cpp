// TODO: not built yet.
#include "exports.h"

extern "C" UINT WINAPI ProcessPropertyEx(MSIHANDLE /*session*/) {
    return ERROR_INSTALL_FAILURE;
}
