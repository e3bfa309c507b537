// Plain registry values read by the actions.
#pragma once

#include <string>
#include <vector>

#include <windows.h>

namespace setuputils {

// A REG_SZ or REG_EXPAND_SZ value as stored (not expanded), up to its first
// NUL; false when it is missing or of another type.
bool ReadStringValue(HKEY key, const wchar_t* name, std::wstring& value);

// A REG_DWORD value read into four bytes; false when it is missing or of
// another type or size.
bool ReadDwordValue(HKEY key, const wchar_t* name, DWORD& value);
LSTATUS WriteDwordValue(HKEY key, const wchar_t* name, DWORD value);

// What a walk over a key visits.
enum class KeyEntries { Subkeys, Values };

// The name of subkey or value `index` of `key`, however long. The registry's
// status; a name that still does not fit (the key changed meanwhile) is
// ERROR_INVALID_DATA, never an empty success.
LSTATUS EnumerateName(HKEY key, KeyEntries entries, DWORD index, std::wstring& name);

// Walks the names of the subkeys or values of `key` by index from 0 while
// `visit(name)` returns true. ERROR_SUCCESS when `visit` stopped the walk;
// otherwise the status that ended it (ERROR_NO_MORE_ITEMS at the end).
template <typename Visit>
LSTATUS WalkKey(HKEY key, KeyEntries entries, Visit&& visit) {
    for (DWORD index = 0;; ++index) {
        std::wstring name;
        if (const LSTATUS status = EnumerateName(key, entries, index, name); status != ERROR_SUCCESS) {
            return status;
        }
        if (!visit(name)) {
            return ERROR_SUCCESS;
        }
    }
}

// The names of the key's direct subkeys in enumeration order, up to the first
// index the registry does not answer.
std::vector<std::wstring> SubkeyNames(HKEY key);

} // namespace setuputils
