// Stands in for the provider's ADVAPI32 patch module. Under
// HKCU\Software\SetupUtilsTests\Patch it counts its loads ("Loads") and the
// calls of its patch entry ("Calls"); the entry returns the DWORD "Result"
// found there, 1 when there is none.
#include <windows.h>

namespace {

const wchar_t kRecords[] = L"Software\\SetupUtilsTests\\Patch";

DWORD ReadRecord(HKEY key, const wchar_t* name, DWORD otherwise) {
    DWORD value = otherwise;
    DWORD size = sizeof(value);
    RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size);
    return value;
}

// Adds one to the count `name` and returns the DWORD "Result".
DWORD Count(const wchar_t* name) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, kRecords, 0, nullptr, 0, KEY_QUERY_VALUE | KEY_SET_VALUE, nullptr,
                        &key, nullptr) != ERROR_SUCCESS) {
        return 0;
    }
    const DWORD count = ReadRecord(key, name, 0) + 1;
    RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&count), sizeof(count));
    const DWORD result = ReadRecord(key, L"Result", 1);
    RegCloseKey(key);
    return result;
}

} // namespace

extern "C" __declspec(dllexport) BOOL WINAPI NvnDllPatch() {
    return Count(L"Calls") != 0;
}

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        Count(L"Loads");
    }
    return TRUE;
}
