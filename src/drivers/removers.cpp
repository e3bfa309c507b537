#include "drivers/removers.h"

#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr wchar_t kTemporaryPrefix[] = L"csp";

// The folder of `path` as GetFullPathNameW splits it; reports which call failed.
bool FolderOf(const std::wstring& path, std::wstring& folder, InstallLog& log) {
    DWORD size = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (size == 0) {
        LogInfo(log, L"GetFullPathName(1) for file:%ls fail.", path.c_str());
        return false;
    }
    std::wstring full(size, L'\0');
    wchar_t* file = nullptr;
    DWORD length = GetFullPathNameW(path.c_str(), size, full.data(), &file);
    if (length == 0 || length >= size || file == nullptr) {
        LogInfo(log, L"GetFullPathName(2) for file:%ls fail.", path.c_str());
        return false;
    }
    folder.assign(full.data(), file);
    return true;
}

UINT MoveAwayAndDeleteAtRestart(const std::wstring& path, InstallLog& log) {
    std::wstring folder;
    if (!FolderOf(path, folder, log)) {
        return ERROR_INSTALL_FAILURE;
    }
    wchar_t temporary[MAX_PATH] = L"";
    if (GetTempFileNameW(folder.c_str(), kTemporaryPrefix, 0, temporary) == 0) {
        LogInfo(log, L"GetTempFileName for file:%ls fail.", path.c_str());
        return ERROR_INSTALL_FAILURE;
    }
    if (!MoveFileExW(path.c_str(), temporary, MOVEFILE_REPLACE_EXISTING)) {
        LogInfo(log, L"MoveFileEx from file:%ls to %ls fail.", path.c_str(), temporary);
        DeleteFileW(temporary);
        return ERROR_INSTALL_FAILURE;
    }
    if (!MoveFileExW(temporary, nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) {
        LogInfo(log, L"MoveFileEx from file:%ls to NULL fail.", temporary);
        return ERROR_INSTALL_FAILURE;
    }
    LogInfo(log, L"File:%ls success mark delete at reboot.", path.c_str());
    return ERROR_SUCCESS;
}

bool IsEmptyKey(HKEY root, const std::wstring& path) {
    RegKey key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, key.put()) != ERROR_SUCCESS) {
        return false;
    }
    DWORD subkeys = 0;
    DWORD values = 0;
    return RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values,
                            nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
           subkeys == 0 && values == 0;
}

} // namespace

UINT DeleteOrDelayFile(const std::wstring& path, InstallLog& log) {
    if (!SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL) && GetLastError() == ERROR_FILE_NOT_FOUND) {
        LogInfo(log, L"No files to remove: %ls", path.c_str());
        return ERROR_SUCCESS;
    }
    if (DeleteFileW(path.c_str())) {
        return ERROR_SUCCESS;
    }
    LogInfo(log, L"File:%ls couldn't be deleted.", path.c_str());
    return MoveAwayAndDeleteAtRestart(path, log);
}

void RemoveEmptyKey(HKEY root, const std::wstring& path, InstallLog& log) {
    std::wstring key = path;
    for (auto parentEnd = key.find_last_of(L'\\'); parentEnd != std::wstring::npos && IsEmptyKey(root, key);
         parentEnd = key.find_last_of(L'\\')) {
        RegKey parent;
        if (RegOpenKeyExW(root, key.substr(0, parentEnd).c_str(), 0, KEY_ALL_ACCESS, parent.put()) !=
                ERROR_SUCCESS ||
            RegDeleteKeyW(parent.get(), key.substr(parentEnd + 1).c_str()) != ERROR_SUCCESS) {
            return;
        }
        LogInfo(log, L"Empty key '%ls' removed.", key.c_str());
        key.resize(parentEnd);
    }
}

UINT RegistryValueRemover::Remove(HKEY root, const std::wstring& path, const std::wstring& name) {
    RegKey key;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_SET_VALUE, key.put()) != ERROR_SUCCESS ||
        RegDeleteValueW(key.get(), name.c_str()) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    key.reset();
    RemoveEmptyKey(root, path, log_);
    return ERROR_SUCCESS;
}

} // namespace setuputils
