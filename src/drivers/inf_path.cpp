#include "drivers/inf_path.h"

#include <windows.h>

#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr DWORD kHiddenOrReadOnly = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
constexpr UINT kWindowsDirectoryChars = MAX_PATH + 1;

bool GetFullPath(const std::wstring& path, std::wstring& full, std::size_t& filePart) {
    DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (size == 0) {
        return false;
    }
    std::wstring buffer(size, L'\0');
    wchar_t* file = nullptr;
    DWORD length = GetFullPathNameW(path.c_str(), size, buffer.data(), &file);
    if (length == 0 || length >= size) {
        return false;
    }
    filePart = file != nullptr ? static_cast<std::size_t>(file - buffer.data()) : length;
    buffer.resize(length);
    full = std::move(buffer);
    return true;
}

// Staged INFs that are read-only or hidden cannot be replaced or removed.
void ClearStagedInfAttributes(InstallLog& log) {
    wchar_t windows[kWindowsDirectoryChars] = L"";
    UINT length = GetSystemWindowsDirectoryW(windows, kWindowsDirectoryChars);
    if (length == 0 || length >= kWindowsDirectoryChars) {
        return;
    }
    const std::wstring infFolder = std::wstring(windows) + L"\\inf\\";
    WIN32_FIND_DATAW found{};
    FindHandle search(FindFirstFileW((infFolder + L"oem*.?nf").c_str(), &found));
    if (!search) {
        return;
    }
    do {
        if ((found.dwFileAttributes & kHiddenOrReadOnly) == 0) {
            continue;
        }
        const std::wstring path = infFolder + found.cFileName;
        if (SetFileAttributesW(path.c_str(), found.dwFileAttributes & ~kHiddenOrReadOnly)) {
            LogInfo(log, L"SetFileAttributes Success: %ls", found.cFileName);
        } else {
            LogError(log, L"SetFileAttributes: %ls", found.cFileName);
        }
    } while (FindNextFileW(search.get(), &found));
}

} // namespace

bool ResolveInfPath(const std::wstring& path, InstallLog& log, InfPath& resolved) {
    std::size_t filePart = 0;
    if (!GetFullPath(path, resolved.full, filePart)) {
        LogError(log, L"GetFullPathName");
        return false;
    }
    resolved.directory = resolved.full.substr(0, filePart);
    ClearStagedInfAttributes(log);
    return true;
}

DWORD ErrorOrInstallFailure(DWORD error) {
    return error != ERROR_SUCCESS ? error : ERROR_INSTALL_FAILURE;
}

DWORD LastErrorOrInstallFailure() {
    return ErrorOrInstallFailure(GetLastError());
}

} // namespace setuputils
