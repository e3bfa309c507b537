#include "integrity/run_nv_verify.h"

#include "frame/child_process.h"
#include "frame/session.h"

namespace setuputils {

UINT RunNVVerify(MSIHANDLE session, const std::wstring& commandLine) {
    ReportInfo(session, commandLine.c_str());
    std::wstring line = commandLine;
    ChildProcess verifier;
    if (!verifier.Start(line, CREATE_NO_WINDOW)) {
        ReportInfo(session, L"CreateProcess() failed: [1]", static_cast<int>(GetLastError()));
        return ERROR_INSTALL_FAILURE;
    }
    // Nothing waits for the verifier: the code read now is usually STILL_ACTIVE.
    const std::optional<DWORD> exitCode = verifier.ExitCode();
    if (!exitCode) {
        ReportActionError(session, L"RunNVVerify", L"GetExitCodeProcess", GetLastError());
        return ERROR_INSTALL_FAILURE;
    }
    return *exitCode;
}

} // namespace setuputils
