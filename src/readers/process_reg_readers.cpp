// TODO: not yet built.
#include "exports.h"

extern "C" UINT WINAPI ProcessRegReaders(MSIHANDLE) {
    return ERROR_SUCCESS;
}
