// Starts the provider's verifier as a child process.
#pragma once

#include <string>

#include <windows.h>
#include <msi.h>

namespace setuputils {

// Reports `commandLine`, starts it without a window and returns the exit code
// read at once: STILL_ACTIVE while the verifier runs on, which it is left to
// do. 1603 when it cannot be started or its exit code cannot be read.
UINT RunNVVerify(MSIHANDLE session, const std::wstring& commandLine);

} // namespace setuputils
