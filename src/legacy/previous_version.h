// Removal of the previous product generation: its setup program run silently
// with the response file the package carries, the result read from its log,
// and the system's pending file renames kept across the run.
#pragma once

#include <string>

#include <windows.h>
#include <msi.h>

namespace setuputils {

// What sets the two removal actions apart.
struct PreviousComponent {
    const wchar_t* action;          // the entry point, named in its reports
    const wchar_t* property;        // the old product's uninstall command
    const wchar_t* propertyFailure; // reported when that property cannot be read
    const wchar_t* name;            // "csp" or "tls": names the Binary row and the temporary files
    const wchar_t* failure;         // reported when the removal fails
    bool returnsRemovalCode;        // fails with the removal's own code rather than 1603
};

// The body of both actions: the uninstall command from the component's
// property, then Uninstall2. 0, 14, the property's error, or the failure.
UINT RemovePreviousComponent(MSIHANDLE session, const PreviousComponent& component);

// Extracts "uninstall.<name>.iss" from the Binary table to the temporary
// folder, runs the uninstall string with it, judges the run by the log and
// removes the temporary files (kept after a failed run). Pending file renames
// are taken away for the run and written back, with those the uninstaller
// queued after them. 0 or an error code.
UINT Uninstall2(MSIHANDLE session, const std::wstring& uninstallString, const wchar_t* name);

// Runs `commandLine` (CreateProcessW may write into it while it starts) and
// waits for it. 0 whatever its exit code; 1603 when it cannot be run.
UINT RunUninstall(MSIHANDLE session, std::wstring& commandLine);

// 0 when the log's first result code is 0; 0x80090020 for another code; an
// error code when the log cannot be read or holds no result code.
UINT GetResultCode(MSIHANDLE session, const wchar_t* logPath);

// "PendingFileRenameOperations" of the open Session Manager key, without its
// final NUL: 0, 2 when there is none, 13 when it is not a well-formed
// REG_MULTI_SZ, or another registry error. One character or less is empty.
LSTATUS ReadPendingRenames(HKEY sessionManager, std::wstring& operations);

// Writes `saved` back, followed by the operations queued since. 0 (also when
// the key cannot be opened) or the error of the write.
UINT RevertReg(MSIHANDLE session, const std::wstring& saved);

} // namespace setuputils
