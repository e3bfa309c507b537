// Child processes the actions start: started from a command line, waited for
// with or without a limit, their exit code read, their handles owned.
#pragma once

#include <optional>
#include <string>

#include <windows.h>

#include "frame/handles.h"

namespace setuputils {

class ChildProcess {
public:
    // Starts `commandLine` (CreateProcessW may write into it) with no inherited
    // handles and default start-up data. False, with the system's last error,
    // when it cannot be started.
    bool Start(std::wstring& commandLine, DWORD creationFlags = 0);

    // Waits for the process to end, at most `milliseconds`: WAIT_OBJECT_0,
    // WAIT_TIMEOUT or WAIT_FAILED.
    DWORD Wait(DWORD milliseconds = INFINITE) const {
        return WaitForSingleObject(process_.get(), milliseconds);
    }

    // The exit code, STILL_ACTIVE while it runs; nothing (with the last error)
    // when it cannot be read.
    std::optional<DWORD> ExitCode() const;

    // Lets the process go; it runs on.
    void Close() {
        process_.reset();
        thread_.reset();
    }

private:
    KernelHandle process_;
    KernelHandle thread_;
};

} // namespace setuputils
