#include "provider/window_titles.h"

namespace setuputils {
namespace {

constexpr std::wstring_view kEnglish = L"1033";
constexpr std::wstring_view kEnglishSuffix = L" Setup";
// "Установка", the word for setup in the Russian installer's title.
constexpr std::wstring_view kRussianPrefix = L"\u0423\u0441\u0442\u0430\u043D\u043E\u0432\u043A\u0430 \"";
constexpr std::wstring_view kRussianSuffix = L"\"";

} // namespace

std::vector<std::wstring> InstallerWindowTitles(std::wstring_view name, std::wstring_view version,
                                                std::wstring_view language) {
    const bool english = language == kEnglish;
    const std::wstring_view prefix = english ? std::wstring_view() : kRussianPrefix;
    const std::wstring_view suffix = english ? kEnglishSuffix : kRussianSuffix;
    std::wstring withVersion(prefix);
    withVersion.append(name).append(version).append(suffix);
    std::wstring withoutVersion(prefix);
    withoutVersion.append(name).append(suffix);
    return {withVersion, withoutVersion};
}

std::vector<std::wstring> ProductDialogTitles(std::wstring_view name, std::wstring_view version) {
    std::wstring withVersion(name);
    withVersion.append(L" ").append(version);
    return {std::wstring(name), withVersion};
}

} // namespace setuputils
