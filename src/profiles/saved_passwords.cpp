#include "profiles/saved_passwords.h"

#include <set>

#include "frame/handles.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

constexpr wchar_t kSavedPasswordsBelowSettings[] = L"KeyDevices\\passwords";

} // namespace

std::wstring FindLeafSubkey(HKEY key, const std::set<std::wstring>& skipped) {
    for (const std::wstring& name : SubkeyNames(key)) {
        RegKey subkey;
        DWORD subkeys = 0;
        if (!skipped.contains(name) &&
            RegOpenKeyExW(key, name.c_str(), 0, KEY_ALL_ACCESS, subkey.put()) == ERROR_SUCCESS &&
            RegQueryInfoKeyW(subkey.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr,
                             nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
            subkeys == 0) {
            return name;
        }
    }
    return {};
}

void ClearSavedPasswords(const std::wstring& settingsPath) {
    RegKey passwords;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, (settingsPath + kSavedPasswordsBelowSettings).c_str(), 0,
                      KEY_ALL_ACCESS, passwords.put()) != ERROR_SUCCESS) {
        return;
    }
    // A leaf that cannot be deleted is passed over, so that the others still go.
    std::set<std::wstring> undeletable;
    for (std::wstring leaf = FindLeafSubkey(passwords.get(), undeletable); !leaf.empty();
         leaf = FindLeafSubkey(passwords.get(), undeletable)) {
        if (RegDeleteKeyW(passwords.get(), leaf.c_str()) != ERROR_SUCCESS) {
            undeletable.insert(leaf);
        }
    }
}

} // namespace setuputils
