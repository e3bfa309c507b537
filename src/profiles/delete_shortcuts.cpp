// DeleteShortcuts: clears the key carriers' saved passwords of the machine and
// of every user listed in the provider's settings tree. Entries that have
// subkeys of their own are kept. Never fails.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"
#include "profiles/saved_passwords.h"

namespace setuputils {
namespace {

void ClearEveryUsersPasswords() {
    RegKey users;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSettingsUsersPath, 0, KEY_ALL_ACCESS, users.put()) !=
        ERROR_SUCCESS) {
        return;
    }
    for (const std::wstring& sid : SubkeyNames(users.get())) {
        ClearSavedPasswords(std::wstring(kSettingsUsersPath) + L"\\" + sid + L"\\");
    }
}

void ClearAllSavedPasswords() {
    ClearSavedPasswords(kMachineSettingsPath);
    ClearEveryUsersPasswords();
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI DeleteShortcuts(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"DeleteShortcuts",
                                               setuputils::ClearAllSavedPasswords);
}
