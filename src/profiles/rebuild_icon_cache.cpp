// RebuildIconCache: schedules the icon cache file of every profile on the
// machine for deletion at the next restart, so that the shell builds it anew,
// and drops the current user's cached Control Panel folder key. Each scheduled
// path is logged; nothing else is reported and the action never fails.
#include <string>
#include <vector>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"
#include "frame/session.h"
#include "frame/windows_version.h"

namespace setuputils {
namespace {

constexpr wchar_t kProfileList[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
constexpr wchar_t kProfileImagePath[] = L"ProfileImagePath";
// Where a profile keeps its local application data, from NT 6 on and before.
constexpr DWORD kFirstVersionWithAppData = 6;
constexpr wchar_t kLocalFolder[] = L"\\AppData\\Local\\";
constexpr wchar_t kOldLocalFolder[] = L"\\Local Settings\\Application Data\\";
constexpr wchar_t kIconCacheFile[] = L"IconCache.db";
constexpr wchar_t kCurrentVersion[] = L"Software\\Microsoft\\Windows\\CurrentVersion";
constexpr wchar_t kControlsFolder[] = L"Controls Folder";

// The environment strings in `text` expanded; false when that fails.
bool ExpandEnvironment(const std::wstring& text, std::wstring& expanded) {
    const DWORD size = ExpandEnvironmentStringsW(text.c_str(), nullptr, 0);
    if (size == 0) {
        return false;
    }
    std::vector<wchar_t> buffer(size);
    const DWORD written = ExpandEnvironmentStringsW(text.c_str(), buffer.data(), size);
    if (written == 0 || written > size) {
        return false;
    }
    expanded.assign(buffer.data());
    return true;
}

void ScheduleIconCacheDeletion(MSIHANDLE session, HKEY profiles, const wchar_t* profile,
                               const wchar_t* localFolder) {
    RegKey key;
    std::wstring imagePath;
    std::wstring path;
    if (RegOpenKeyExW(profiles, profile, 0, KEY_QUERY_VALUE, key.put()) != ERROR_SUCCESS ||
        !ReadStringValue(key.get(), kProfileImagePath, imagePath) || !ExpandEnvironment(imagePath, path) ||
        path.empty()) {
        return; // an empty path would name the cache of the current drive's root
    }
    path += localFolder;
    path += kIconCacheFile;
    ReportInfo(session, L"Clean IconCache for path: ");
    ReportInfo(session, path.c_str());
    // A file that is not there is scheduled all the same.
    MoveFileExW(path.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

void ScheduleEveryProfilesIconCache(MSIHANDLE session) {
    RegKey profiles;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kProfileList, 0, KEY_READ, profiles.put()) != ERROR_SUCCESS) {
        return;
    }
    const wchar_t* localFolder =
        GetNtVersion().major >= kFirstVersionWithAppData ? kLocalFolder : kOldLocalFolder;
    for (const std::wstring& profile : SubkeyNames(profiles.get())) {
        ScheduleIconCacheDeletion(session, profiles.get(), profile.c_str(), localFolder);
    }
}

// RegDeleteKeyW deletes the key only when it has no subkeys.
void DropControlsFolderCache() {
    RegKey currentVersion;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, kCurrentVersion, 0, KEY_ALL_ACCESS, currentVersion.put()) ==
        ERROR_SUCCESS) {
        RegDeleteKeyW(currentVersion.get(), kControlsFolder);
    }
}

void RebuildIconCaches(MSIHANDLE session) {
    ScheduleEveryProfilesIconCache(session);
    DropControlsFolderCache();
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI RebuildIconCache(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"RebuildIconCache", setuputils::RebuildIconCaches);
}
