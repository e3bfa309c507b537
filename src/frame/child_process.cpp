#include "frame/child_process.h"

namespace setuputils {

bool ChildProcess::Start(std::wstring& commandLine, DWORD creationFlags) {
    Close();
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, creationFlags, nullptr, nullptr,
                        &startup, &started)) {
        return false;
    }
    process_.reset(started.hProcess);
    thread_.reset(started.hThread);
    return true;
}

std::optional<DWORD> ChildProcess::ExitCode() const {
    DWORD exitCode = 0;
    if (!GetExitCodeProcess(process_.get(), &exitCode)) {
        return std::nullopt;
    }
    return exitCode;
}

} // namespace setuputils
