// Module start-up and the rundll32 entry that does nothing.
#include "exports.h"

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

// rundll32 entry kept for the package's command lines; it has nothing to do.
extern "C" void CALLBACK RunDllW(HWND /*window*/, HINSTANCE /*instance*/, LPWSTR /*commandLine*/,
                                 int /*show*/) {}
