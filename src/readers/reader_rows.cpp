#include "readers/reader_rows.h"

#include <utility>

namespace setuputils {
namespace {

constexpr std::wstring_view kDefaultValueParameter = L"-";
constexpr wchar_t kListSeparator = L',';

ReaderValuePlace PlaceBelow(std::wstring key, const std::wstring& valueName) {
    std::wstring identifier = key + L"\\" + valueName;
    return {std::move(identifier), std::move(key), valueName};
}

} // namespace

std::wstring ReaderKey(std::wstring_view type, std::wstring_view name) {
    std::wstring key = kConfigurationKeyPrefix;
    key.append(type).append(L"\\").append(name);
    return key;
}

std::wstring ReaderValueName(std::wstring_view parameter) {
    return parameter == kDefaultValueParameter ? std::wstring() : std::wstring(parameter);
}

std::vector<std::wstring> SplitListProperty(std::wstring_view list) {
    std::vector<std::wstring> items;
    for (std::size_t comma = list.find(kListSeparator); comma != std::wstring_view::npos;
         comma = list.find(kListSeparator)) {
        items.emplace_back(list.substr(0, comma));
        list.remove_prefix(comma + 1);
    }
    items.emplace_back(list);
    return items;
}

std::vector<ReaderValuePlace> ReaderValuePlaces(std::wstring_view type, std::wstring_view name,
                                                std::wstring_view parameter,
                                                const std::optional<std::wstring>& list) {
    const std::wstring key = ReaderKey(type, name);
    const std::wstring valueName = ReaderValueName(parameter);
    if (!list) {
        return {PlaceBelow(key, valueName)};
    }
    std::vector<ReaderValuePlace> places;
    for (const std::wstring& item : SplitListProperty(*list)) {
        places.push_back(PlaceBelow(key + L"\\" + item, valueName));
    }
    return places;
}

} // namespace setuputils
