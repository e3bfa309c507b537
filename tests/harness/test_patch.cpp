// Stands in for the provider's ADVAPI32 patch module: counts its loads and its entry's calls as
// the DWORDs "Loads" and "Calls" of HKCU\Software\SetupUtilsTests\Patch; the entry returns the
// DWORD "Result" there, 1 when there is none.
#include <windows.h>

static DWORD Count(const wchar_t* name) {
    const wchar_t* records = L"Software\\SetupUtilsTests\\Patch";
    DWORD count = 0, result = 1, size = sizeof(DWORD);
    RegGetValueW(HKEY_CURRENT_USER, records, name, RRF_RT_REG_DWORD, nullptr, &count, &size);
    ++count;
    RegSetKeyValueW(HKEY_CURRENT_USER, records, name, REG_DWORD, &count, sizeof(count));
    RegGetValueW(HKEY_CURRENT_USER, records, L"Result", RRF_RT_REG_DWORD, nullptr, &result, &size);
    return result;
}

extern "C" __declspec(dllexport) BOOL WINAPI NvnDllPatch() {
    return Count(L"Calls") != 0;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        Count(L"Loads");
    }
    return TRUE;
}
