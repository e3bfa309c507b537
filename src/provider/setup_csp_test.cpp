// SetupCSPTest (deferred; CustomActionData: a command line): runs the
// provider's self-test program and waits for it to end. Its exit code does
// not matter; only a program that cannot be started or waited for fails the
// installation (1603).
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/child_process.h"
#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kAction[] = L"SetupCSPTest";
constexpr DWORD kCommandLineLength = 260;
constexpr int kErrorTestRun = 25030;

void ReportTestRunError(MSIHANDLE session) {
    PostMessageRecord(session, kMessageError, nullptr, kErrorTestRun);
}

UINT RunSelfTest(MSIHANDLE session) {
    std::wstring commandLine;
    if (const UINT status = WithinCapacity(GetPropertyString(session, L"CustomActionData", commandLine),
                                           commandLine, kCommandLineLength);
        status != ERROR_SUCCESS) {
        ReportActionError(session, kAction, L"MsiGetProperty", status);
        return ERROR_INSTALL_FAILURE;
    }
    ReportInfo(session, commandLine.c_str());
    ReportInfo(session, L"CreateProcess()...");
    ChildProcess test;
    if (!test.Start(commandLine)) {
        ReportInfo(session, L"CreateProcess() failed: [1]", static_cast<int>(GetLastError()));
        ReportTestRunError(session);
        return ERROR_INSTALL_FAILURE;
    }
    ReportInfo(session, L"WaitForSingleObject()...");
    if (test.Wait() == WAIT_FAILED) {
        ReportActionError(session, kAction, L"WaitForSingleObject", GetLastError());
        return ERROR_INSTALL_FAILURE;
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI SetupCSPTest(MSIHANDLE session) {
    return setuputils::GuardAction(session, setuputils::kAction, setuputils::RunSelfTest);
}
