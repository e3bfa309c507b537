#include "legacy/uninstall_rules.h"

#include <limits>

namespace setuputils {
namespace {

constexpr std::string_view kResultMarker = "ResultCode=";

// The white space "%d" skips (the C locale's).
bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// A decimal number at the start of `text`, after white space and a sign.
std::optional<std::int32_t> ReadDecimal(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && IsBlank(text[at])) {
        ++at;
    }
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        ++at;
    }
    if (at == text.size() || !IsDigit(text[at])) {
        return std::nullopt;
    }
    // Kept within one step beyond the 32-bit range, then clamped to it.
    constexpr std::int64_t kLimit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    std::int64_t magnitude = 0;
    for (; at < text.size() && IsDigit(text[at]); ++at) {
        magnitude = magnitude * 10 + (text[at] - '0');
        if (magnitude > kLimit) {
            magnitude = kLimit;
        }
    }
    const std::int64_t value = negative ? -magnitude : magnitude;
    if (value > std::numeric_limits<std::int32_t>::max()) {
        return std::numeric_limits<std::int32_t>::max();
    }
    return static_cast<std::int32_t>(value);
}

} // namespace

std::wstring UninstallCommandLine(std::wstring_view uninstallString, std::wstring_view responseFile,
                                  std::wstring_view logFile) {
    std::wstring line(uninstallString);
    line.append(L"-s -f1\"").append(responseFile).append(L"\" -f2\"").append(logFile).append(L"\"");
    return line;
}

std::optional<std::int32_t> FindResultCode(std::string_view log) {
    log = log.substr(0, log.find('\0'));
    const std::size_t marker = log.find(kResultMarker);
    if (marker == std::string_view::npos) {
        return std::nullopt;
    }
    return ReadDecimal(log.substr(marker + kResultMarker.size()));
}

PendingRenames KeepPendingRenames(std::wstring_view characters, std::size_t byteCount) {
    const std::size_t count = characters.size();
    if (byteCount % 2 != 0 || count < 2 || characters[count - 1] != L'\0' || characters[count - 2] != L'\0') {
        return {kMalformedPendingRenames, std::wstring(characters.substr(0, characters.find(L'\0')))};
    }
    return {0, std::wstring(characters.substr(0, count - 1))};
}

std::wstring MergePendingRenames(std::wstring_view saved, std::wstring_view added) {
    std::wstring merged(saved);
    merged.append(added);
    return merged;
}

} // namespace setuputils
