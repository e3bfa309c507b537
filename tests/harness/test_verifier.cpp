// Stands in for the provider's verifier: records its command line and, after a tab, how many processes
// share its console (1: its own) under HKCU\Software\SetupUtilsTests\Verifier, named after the image
// (the text after " -file "); then runs on for a while, as a verifier does, and exits with 7.
#include <string>

#include <windows.h>

int main() {
    const std::wstring commandLine = GetCommandLineW();
    const std::size_t at = commandLine.rfind(L" -file ");
    const std::wstring image = at == std::wstring::npos ? L"" : commandLine.substr(at + 7);
    DWORD processes[8] = {};
    const std::wstring record = commandLine + L"\t" + std::to_wstring(GetConsoleProcessList(processes, 8));
    RegSetKeyValueW(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\Verifier", image.c_str(), REG_SZ,
                    record.c_str(), static_cast<DWORD>((record.size() + 1) * sizeof(wchar_t)));
    Sleep(2000);
    return 7;
}
