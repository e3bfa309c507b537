// The provider's self-test stand-in, "test_self_test.exe <exit code> [ms]": after
// ms (500) it records its command line as HKCU\Software\SetupUtilsTests\SelfTest "Finished".
#include <cwchar>
#include <cstdlib>

#include <windows.h>

int main(int argc, char** argv) {
    Sleep(argc > 2 ? strtoul(argv[2], nullptr, 10) : 500);
    const wchar_t* line = GetCommandLineW();
    RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\SelfTest", L"Finished", REG_SZ, line,
                    static_cast<DWORD>((wcslen(line) + 1) * sizeof(wchar_t)));
    return argc > 1 ? atoi(argv[1]) : 0;
}
