// What an earlier installation left below the provider's configuration key,
// carried over into properties by MigrateReaders: which RegReaders rows are
// looked at and how a key becomes a property value.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

// The property of the key store path, read from the value kKeyStorePathValue.
inline constexpr wchar_t kKeyStorePathProperty[] = L"REGDSRF";
inline constexpr wchar_t kKeyStorePathValue[] = L"/db1/kis_1";

enum class ReaderMigration {
    Skip,         // the row is not looked at
    Flag,         // the property named by Condition becomes "1" when the key exists
    KeyStorePath, // REGDSRF becomes the stored key store path up to its "\db1\kis_1"
    SubkeyList,   // the property named by Condition becomes the list of the key's subkeys
};

// The treatment of a row with `name` and `condition`. Only rows whose name
// holds "\Default" or whose Condition names one of the subkey lists are looked
// at; a Condition with a blank is a condition expression, not a property name.
ReaderMigration DecideReaderMigration(std::wstring_view name, std::wstring_view condition);

// The subkey names, in enumeration order, joined for a list property. "PNP
// FAT12" is left out; every name after the first enumerated one gets its comma,
// so a list whose first subkey was left out begins with a comma.
std::wstring JoinSubkeyList(const std::vector<std::wstring>& subkeys);

// The part of a stored key store path before its "\db1\kis_1"; empty when it has none.
std::wstring KeyStorePathPrefix(std::wstring_view path);

} // namespace setuputils
