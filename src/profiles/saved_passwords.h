// The key carriers' saved passwords in the provider's settings tree, for the
// machine and for each user.
#pragma once

#include <set>
#include <string>

#include <windows.h>

namespace setuputils {

// The machine's settings root under HKLM, and the per-user roots below it.
inline constexpr wchar_t kMachineSettingsPath[] = L"SOFTWARE\\Norvane\\Settings\\";
inline constexpr wchar_t kSettingsUsersPath[] = L"SOFTWARE\\Norvane\\Settings\\Users";

// Removes the saved-password entries below HKLM\`settingsPath` (ending in
// "\") + "KeyDevices\passwords" that have no subkeys; entries with subkeys of
// their own stay. Failures are skipped: an entry that cannot be deleted stays
// and the others still go.
void ClearSavedPasswords(const std::wstring& settingsPath);

// The name of the first direct subkey of `key`, other than the `skipped`
// ones, that opens with full access and has no subkeys, or an empty name
// when there is none.
std::wstring FindLeafSubkey(HKEY key, const std::set<std::wstring>& skipped);

} // namespace setuputils
