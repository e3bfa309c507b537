// Stands in for the provider's self-test program: "test_self_test.exe <exit
// code> [milliseconds]". It runs for the given time (default 500 ms), then
// records that it finished in HKCU\Software\SetupUtilsTests\SelfTest as
// "Finished" = its command line, and exits with the given code.
#include <cwchar>
#include <cstdlib>

#include <windows.h>

int main(int argc, char** argv) {
    const unsigned long code = argc > 1 ? strtoul(argv[1], nullptr, 10) : 0;
    Sleep(argc > 2 ? strtoul(argv[2], nullptr, 10) : 500);
    HKEY record = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\SelfTest", 0, nullptr, 0,
                        KEY_SET_VALUE, nullptr, &record, nullptr) == ERROR_SUCCESS) {
        const wchar_t* line = GetCommandLineW();
        RegSetValueExW(record, L"Finished", 0, REG_SZ, reinterpret_cast<const BYTE*>(line),
                       static_cast<DWORD>((wcslen(line) + 1) * sizeof(wchar_t)));
        RegCloseKey(record);
    }
    return static_cast<int>(code);
}
