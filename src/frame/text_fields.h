// Fields of a separated text (a deferred action's CustomActionData), taken one at a time.
#pragma once

#include <string>
#include <string_view>

namespace setuputils {

// Takes the text before the next `separator` off `rest`, and the separator with it; without one, all of it.
inline std::wstring TakeField(std::wstring_view& rest, wchar_t separator) {
    const std::size_t end = rest.find(separator);
    std::wstring field(rest.substr(0, end));
    rest = end == std::wstring_view::npos ? std::wstring_view() : rest.substr(end + 1);
    return field;
}

} // namespace setuputils
