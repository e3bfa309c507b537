// Stands in for the provider's verifier. Each run is recorded under
// HKCU\Software\SetupUtilsTests\Verifier as a value named after the image (the
// text after " -file ") holding the whole command line and, after a tab, the
// number of processes sharing its console (1: it was given a console of its
// own). It then runs on for a while, as a verifier does, and exits with 7.
#include <string>

#include <windows.h>

int main() {
    const std::wstring commandLine = GetCommandLineW();
    const std::wstring fileSwitch = L" -file ";
    const std::size_t at = commandLine.rfind(fileSwitch);
    const std::wstring image = at == std::wstring::npos ? L"" : commandLine.substr(at + fileSwitch.size());

    DWORD consoleProcesses[8] = {};
    const std::wstring record =
        commandLine + L"\t" + std::to_wstring(GetConsoleProcessList(consoleProcesses, 8));
    HKEY runs = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\Verifier", 0, nullptr, 0,
                        KEY_SET_VALUE, nullptr, &runs, nullptr) == ERROR_SUCCESS) {
        RegSetValueExW(runs, image.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(record.c_str()),
                       static_cast<DWORD>((record.size() + 1) * sizeof(wchar_t)));
        RegCloseKey(runs);
    }
    Sleep(2000);
    return 7;
}
