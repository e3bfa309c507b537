// A stand-in service named by its command line ("test_service.exe <name> ...") that counts its starts
// under HKLM\Software\SetupUtilsTests, runs until asked to stop and then takes half a second to stop.
#include <windows.h>

namespace {

const wchar_t kRecords[] = L"Software\\SetupUtilsTests";
wchar_t g_name[256] = L"";
SERVICE_STATUS_HANDLE g_status = nullptr;
HANDLE g_stopRequested = nullptr;

void Report(DWORD state) {
    const DWORD accepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    SERVICE_STATUS status{SERVICE_WIN32_OWN_PROCESS, state, accepted, NO_ERROR, 0, 0, 1000};
    SetServiceStatus(g_status, &status);
}

DWORD WINAPI Control(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(g_stopRequested);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, wchar_t**) {
    if ((g_status = RegisterServiceCtrlHandlerExW(g_name, Control, nullptr)) != nullptr) {
        DWORD starts = 0, size = sizeof(starts);
        RegGetValueW(HKEY_LOCAL_MACHINE, kRecords, g_name, RRF_RT_REG_DWORD, nullptr, &starts, &size);
        ++starts;
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, kRecords, g_name, REG_DWORD, &starts, sizeof(starts));
        Report(SERVICE_RUNNING);
        WaitForSingleObject(g_stopRequested, INFINITE);
        Sleep(500);
        Report(SERVICE_STOPPED);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || MultiByteToWideChar(CP_ACP, 0, argv[1], -1, g_name, 256) == 0) {
        return 1;
    }
    g_stopRequested = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SERVICE_TABLE_ENTRYW table[] = {{g_name, ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherW(table) ? 0 : 2;
}
