// The CustomActionData layout of the deferred driver actions: five or six
// fields separated by the single character U+0001, with no escaping.
//
//   1 directory (ends in a backslash)   2 file name, `long` or `short|long`
//   3 component id                      4 flags ("%u")
//   5 progress ticks ("%ld")            6 service name (uninstall data only)
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace setuputils {

inline constexpr wchar_t kDriverDataSeparator = L'\x0001';

// Progress ticks the deferred driver action reports for one package.
inline constexpr long kDriverProgressTicks = 3000000;

struct DriverActionData {
    std::wstring infPath; // field 1 immediately followed by the long name of field 2
    std::wstring componentId;
    long flags = 0;
    long progressTicks = 0;
    std::optional<std::wstring> serviceName; // field 6, when asked for and present
};

// Builds fields 1 to 5.
std::wstring BuildDriverActionData(std::wstring_view directory, std::wstring_view fileName,
                                   std::wstring_view componentId, unsigned flags);

// Appends field 6.
void AppendServiceName(std::wstring& data, std::wstring_view serviceName);

// Splits a value built by BuildDriverActionData. Numbers are read as the C
// runtime's _wtol reads them. Fields 5 and 6 are looked for from one character
// after the start of the field before them, so an empty field 4 or 5 is not
// supported. Returns nothing when a separator that must be there is missing.
std::optional<DriverActionData> ParseDriverActionDataText(std::wstring_view text, bool withServiceName);

// Reads a decimal number as _wtol does: leading white space, an optional sign,
// digits up to the first other character; out-of-range values saturate.
long ParseLeadingLong(std::wstring_view text);

} // namespace setuputils
