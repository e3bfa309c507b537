// Where a driver package's INF is, and the system INF store beside it.
#pragma once

#include <string>

#include "frame/install_log.h"

namespace setuputils {

struct InfPath {
    std::wstring full;      // absolute path of the INF
    std::wstring directory; // the text before its file part, ending in a backslash
};

// Makes `path` absolute and splits off its directory; on failure reports
// "GetFullPathName" and returns false. Then clears the read-only and hidden
// attributes of the staged INFs ("oem*.?nf") in the system INF folder, which
// never fails the call.
bool ResolveInfPath(const std::wstring& path, InstallLog& log, InfPath& resolved);

// The status to return for a failed call: its last-error value, or 1603 when it left none.
DWORD LastErrorOrInstallFailure();
DWORD ErrorOrInstallFailure(DWORD error);

} // namespace setuputils
