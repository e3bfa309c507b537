// InitializeHardRng (deferred, as the installing service; CustomActionData:
// "entry name/command", the name "InstallCSP" when left out): for every user
// hive whose RunOnce key exists and whose user's random seed is not yet
// initialised, writes the command as that RunOnce entry, so that the seeding
// runs at the user's next logon. Seeded users' entries are left alone. With
// an empty command the entry is removed from every hive instead. Nothing is
// reported and the installation never fails here.
#include <string>
#include <vector>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "registry/path_map.h"
#include "rng/random_seed.h"
#include "rng/seeding_rules.h"

namespace setuputils {
namespace {

constexpr wchar_t kRunOnceBelowUser[] = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
constexpr wchar_t kRandomBelowUser[] = L"\\Random";

// The user's "Random" key in the machine-side view of the settings tree,
// reached through the 32-bit node by its path.
bool NeedsSeeding(const std::wstring& sid) {
    const std::wstring path = kUserSettingsRoot + sid + kRandomBelowUser;
    RegKey random;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE, random.put()) !=
               ERROR_SUCCESS ||
           !IsUserSeeded(random.get());
}

// The user's RunOnce key is opened, never created: a hive without one gets nothing.
void UpdateRunOnce(const std::wstring& sid, const RunOnceRequest& request) {
    RegKey runOnce;
    if (RegOpenKeyExW(HKEY_USERS, (sid + kRunOnceBelowUser).c_str(), 0, KEY_SET_VALUE, runOnce.put()) !=
        ERROR_SUCCESS) {
        return;
    }
    if (request.command.empty()) {
        RegDeleteValueW(runOnce.get(), request.entryName.c_str());
    } else if (NeedsSeeding(sid)) {
        RegSetValueExW(runOnce.get(), request.entryName.c_str(), 0, REG_SZ,
                       reinterpret_cast<const BYTE*>(request.command.c_str()),
                       static_cast<DWORD>((request.command.size() + 1) * sizeof(wchar_t)));
    }
}

// Every subkey of HKEY_USERS is taken for a user; the first enumeration
// error of any kind ends the walk.
void UpdateEveryUser(const RunOnceRequest& request) {
    RegKey users;
    DWORD longestName = 0;
    if (RegOpenKeyExW(HKEY_USERS, L"", 0, KEY_ALL_ACCESS, users.put()) != ERROR_SUCCESS ||
        RegQueryInfoKeyW(users.get(), nullptr, nullptr, nullptr, nullptr, &longestName, nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
        return;
    }
    std::vector<wchar_t> name(longestName + 1);
    for (DWORD index = 0;; ++index) {
        DWORD length = static_cast<DWORD>(name.size());
        if (RegEnumKeyExW(users.get(), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            return;
        }
        UpdateRunOnce(std::wstring(name.data(), length), request);
    }
}

void ScheduleSeeding(MSIHANDLE session) {
    std::wstring data;
    if (GetPropertyString(session, L"CustomActionData", data) != ERROR_SUCCESS || data.empty()) {
        return;
    }
    UpdateEveryUser(SplitRunOnceRequest(data));
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI InitializeHardRng(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"InitializeHardRng",
                                               [&] { setuputils::ScheduleSeeding(session); });
}
