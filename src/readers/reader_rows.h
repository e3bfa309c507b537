// Where the rows of the package's RegReaders table go in the installer's
// Registry table: values below the provider's configuration key, one per row,
// or one per item of the row's list property one key level deeper.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

// The provider's configuration key, below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kConfigurationKeyPrefix[] = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\";

// The Parameter of rows that belong to the smart-card type registration and
// are never written as values.
inline constexpr wchar_t kCalaisRegisteredParameter[] = L"CalaisRegistered";

// The configuration key of a row: prefix + type + "\" + name.
std::wstring ReaderKey(std::wstring_view type, std::wstring_view name);

// The value name a Parameter stands for: "-" is the key's default value.
std::wstring ReaderValueName(std::wstring_view parameter);

// A list property value cut at every ",", left to right. Items keep their
// blanks and empty items count: "" is one empty item, "A," is "A" and "".
std::vector<std::wstring> SplitListProperty(std::wstring_view list);

// Where one value goes.
struct ReaderValuePlace {
    std::wstring identifier; // the Registry row's primary key: key + "\" + name
    std::wstring key;
    std::wstring name;
};

// The places of one row's values: its key without a list property, or each
// item of `list` below its key when the row names a list property.
std::vector<ReaderValuePlace> ReaderValuePlaces(std::wstring_view type, std::wstring_view name,
                                                std::wstring_view parameter,
                                                const std::optional<std::wstring>& list);

} // namespace setuputils
