#include "profiles/user_run_once.h"

#include <windows.h>

#include "frame/handles.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

constexpr wchar_t kRunOnceBelowUser[] = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";

void UpdateRunOnce(const std::wstring& sid, const RunOnceRequest& request,
                   const RunOnceUserFilter& shouldWrite) {
    RegKey runOnce;
    if (RegOpenKeyExW(HKEY_USERS, (sid + kRunOnceBelowUser).c_str(), 0, KEY_SET_VALUE, runOnce.put()) !=
        ERROR_SUCCESS) {
        return;
    }
    if (request.command.empty()) {
        RegDeleteValueW(runOnce.get(), request.entryName.c_str());
    } else if (shouldWrite(sid)) {
        RegSetValueExW(runOnce.get(), request.entryName.c_str(), 0, REG_SZ,
                       reinterpret_cast<const BYTE*>(request.command.c_str()),
                       static_cast<DWORD>((request.command.size() + 1) * sizeof(wchar_t)));
    }
}

} // namespace

void UpdateEveryUsersRunOnce(const RunOnceRequest& request, const RunOnceUserFilter& shouldWrite) {
    RegKey users;
    if (RegOpenKeyExW(HKEY_USERS, L"", 0, KEY_ALL_ACCESS, users.put()) != ERROR_SUCCESS) {
        return;
    }
    for (const std::wstring& sid : SubkeyNames(users.get())) {
        UpdateRunOnce(sid, request, shouldWrite);
    }
}

} // namespace setuputils
