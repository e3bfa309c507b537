#include "profiles/saved_passwords.h"

#include "frame/handles.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

constexpr wchar_t kSavedPasswordsBelowSettings[] = L"KeyDevices\\passwords";

} // namespace

std::wstring FindLeafSubkey(HKEY key) {
    for (const std::wstring& name : SubkeyNames(key)) {
        RegKey subkey;
        DWORD subkeys = 0;
        if (RegOpenKeyExW(key, name.c_str(), 0, KEY_ALL_ACCESS, subkey.put()) == ERROR_SUCCESS &&
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
    // A leaf that cannot be deleted would be found again: stop there.
    for (std::wstring leaf = FindLeafSubkey(passwords.get()); !leaf.empty();
         leaf = FindLeafSubkey(passwords.get())) {
        if (RegDeleteKeyW(passwords.get(), leaf.c_str()) != ERROR_SUCCESS) {
            return;
        }
    }
}

} // namespace setuputils
