#include "frame/driver_action_data.h"

#include <climits>
#include <cwctype>

namespace setuputils {
namespace {

constexpr std::wstring_view::size_type npos = std::wstring_view::npos;

// The text after the separator at `position`.
std::wstring_view After(std::wstring_view text, std::wstring_view::size_type position) {
    return text.substr(position + 1);
}

} // namespace

std::wstring BuildDriverActionData(std::wstring_view directory, std::wstring_view fileName,
                                   std::wstring_view componentId, unsigned flags) {
    std::wstring data;
    data.append(directory).push_back(kDriverDataSeparator);
    data.append(fileName).push_back(kDriverDataSeparator);
    data.append(componentId).push_back(kDriverDataSeparator);
    data.append(std::to_wstring(flags)).push_back(kDriverDataSeparator);
    data.append(std::to_wstring(kDriverProgressTicks));
    return data;
}

void AppendServiceName(std::wstring& data, std::wstring_view serviceName) {
    data.push_back(kDriverDataSeparator);
    data.append(serviceName);
}

long ParseLeadingLong(std::wstring_view text) {
    std::wstring_view::size_type i = 0;
    while (i < text.size() && std::iswspace(static_cast<std::wint_t>(text[i]))) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == L'+' || text[i] == L'-')) {
        negative = text[i] == L'-';
        ++i;
    }
    // Accumulate towards the sign so that LONG_MIN is reachable.
    long value = 0;
    for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
        long digit = text[i] - L'0';
        if (negative) {
            if (value < (LONG_MIN + digit) / 10) {
                return LONG_MIN;
            }
            value = value * 10 - digit;
        } else {
            if (value > (LONG_MAX - digit) / 10) {
                return LONG_MAX;
            }
            value = value * 10 + digit;
        }
    }
    return value;
}

std::optional<DriverActionData> ParseDriverActionDataText(std::wstring_view text, bool withServiceName) {
    // Field 1: the directory.
    auto first = text.find(kDriverDataSeparator);
    if (first == npos) {
        return std::nullopt;
    }
    std::wstring_view directory = text.substr(0, first);

    // Field 2: the long name follows a "|" that stands before the next separator.
    std::wstring_view rest = After(text, first);
    auto second = rest.find(kDriverDataSeparator);
    if (second == npos) {
        return std::nullopt;
    }
    auto bar = rest.find(L'|');
    auto nameStart = (bar != npos && bar < second) ? bar + 1 : 0;

    DriverActionData data;
    data.infPath.assign(directory).append(rest.substr(nameStart, second - nameStart));

    // Field 3: the component id.
    rest = After(rest, second);
    auto third = rest.find(kDriverDataSeparator);
    if (third == npos) {
        return std::nullopt;
    }
    data.componentId.assign(rest.substr(0, third));

    // Field 4: flags. Field 5 is looked for from one character after its start.
    std::wstring_view flags = After(rest, third);
    data.flags = ParseLeadingLong(flags);
    auto fourth = flags.empty() ? npos : flags.find(kDriverDataSeparator, 1);
    if (fourth == npos) {
        return std::nullopt;
    }

    // Field 5: progress ticks. Field 6 is looked for from one character after its start.
    std::wstring_view ticks = After(flags, fourth);
    data.progressTicks = ParseLeadingLong(ticks);
    if (withServiceName && !ticks.empty()) {
        auto fifth = ticks.find(kDriverDataSeparator, 1);
        if (fifth != npos) {
            data.serviceName.emplace(After(ticks, fifth));
        }
    }
    return data;
}

} // namespace setuputils
