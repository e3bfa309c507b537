// The two removers of the driver-package removal: one deletes a file (or
// moves it away and deletes it at restart), one deletes a registry value and
// the keys it leaves empty. Each carries a label for the log and whether its
// failures are ignored.
#pragma once

#include <string>

#include <windows.h>

#include "frame/install_log.h"

namespace setuputils {

// Deletes `path`. A file that cannot be deleted (in use) is renamed to a
// temporary "csp" name in its folder, which frees its name at once, and that
// name is deleted at the next restart. Returns 0 or 1603.
UINT DeleteOrDelayFile(const std::wstring& path, InstallLog& log);

// Deletes `path` below `root` and then each parent while it has neither
// subkeys nor values, up to the first component of the path.
void RemoveEmptyKey(HKEY root, const std::wstring& path, InstallLog& log);

class FileRemover {
public:
    explicit FileRemover(InstallLog& log) : log_(log) {}
    const wchar_t* label() const { return L"RemoveFileAction"; }
    bool ignoreErrors() const { return true; }
    UINT Remove(const std::wstring& path) { return DeleteOrDelayFile(path, log_); }

private:
    InstallLog& log_;
};

class RegistryValueRemover {
public:
    explicit RegistryValueRemover(InstallLog& log) : log_(log) {}
    const wchar_t* label() const { return L"RemoveRegistryAction"; }
    bool ignoreErrors() const { return true; }
    // Deletes value `name` of key `path` below `root`, then the keys left empty. Returns 0 or 1603.
    UINT Remove(HKEY root, const std::wstring& path, const std::wstring& name);

private:
    InstallLog& log_;
};

} // namespace setuputils
