// Formatting of log lines: wide printf rules, at most 511 characters kept.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>

namespace setuputils {

// Size of the log line buffer; the last place holds the terminator.
inline constexpr std::size_t kLogLineBufferChars = 512;

// Formats `format` with wide printf rules (use %ls for wide strings) and keeps
// the first 511 characters of the result.
std::wstring FormatLogLine(const wchar_t* format, std::va_list args);
std::wstring FormatLogLine(const wchar_t* format, ...);

} // namespace setuputils
