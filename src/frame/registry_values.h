// Plain registry values read by the actions.
#pragma once

#include <string>
#include <vector>

#include <windows.h>

namespace setuputils {

// A REG_SZ or REG_EXPAND_SZ value as stored (not expanded), up to its first
// NUL; false when it is missing or of another type.
bool ReadStringValue(HKEY key, const wchar_t* name, std::wstring& value);

// The names of the key's direct subkeys in enumeration order, up to the first
// index the registry does not answer.
std::vector<std::wstring> SubkeyNames(HKEY key);

} // namespace setuputils
