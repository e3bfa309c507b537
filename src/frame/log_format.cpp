#include "frame/log_format.h"

#include <algorithm>
#include <cwchar>

namespace setuputils {
namespace {

// Output longer than this is cut as well; it only bounds the work for absurd input.
constexpr std::size_t kLargestFormattedChars = std::size_t{1} << 20;

} // namespace

std::wstring FormatLogLine(const wchar_t* format, std::va_list args) {
    constexpr std::size_t kKept = kLogLineBufferChars - 1;
    std::wstring buffer;
    for (std::size_t capacity = kLogLineBufferChars;;
         capacity = std::min(capacity * 8, kLargestFormattedChars)) {
        buffer.assign(capacity, L'\0');
        std::va_list copy;
        va_copy(copy, args);
        int written = std::vswprintf(buffer.data(), buffer.size(), format, copy);
        va_end(copy);
        if (written >= 0) {
            buffer.resize(std::min<std::size_t>(static_cast<std::size_t>(written), kKept));
            return buffer;
        }
        if (capacity == kLargestFormattedChars) {
            break;
        }
    }
    // Still too long: keep what the runtime wrote before it gave up.
    buffer.resize(wcsnlen(buffer.c_str(), kKept));
    return buffer;
}

std::wstring FormatLogLine(const wchar_t* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::wstring line = FormatLogLine(format, args);
    va_end(args);
    return line;
}

} // namespace setuputils
