#include "integrity/run_nv_verify.h"

#include <vector>

#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {

UINT RunNVVerify(MSIHANDLE session, const std::wstring& commandLine) {
    ReportInfo(session, commandLine.c_str());

    // CreateProcessW may write into the command line it is given.
    std::vector<wchar_t> line(commandLine.c_str(), commandLine.c_str() + commandLine.size() + 1);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &started)) {
        ReportInfo(session, L"CreateProcess() failed: [1]", static_cast<int>(GetLastError()));
        return ERROR_INSTALL_FAILURE;
    }
    KernelHandle process(started.hProcess);
    KernelHandle thread(started.hThread);

    // Nothing waits for the verifier: the code read now is usually STILL_ACTIVE.
    DWORD exitCode = 0;
    if (!GetExitCodeProcess(process.get(), &exitCode)) {
        ReportActionError(session, L"RunNVVerify", L"GetExitCodeProcess", GetLastError());
        return ERROR_INSTALL_FAILURE;
    }
    return exitCode;
}

} // namespace setuputils
