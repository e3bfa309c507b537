#include "readers/reader_migration.h"

#include <algorithm>
#include <iterator>

namespace setuputils {
namespace {

constexpr std::wstring_view kDefaultNameMark = L"\\Default";
constexpr std::wstring_view kKeyStorePathEnd = L"\\db1\\kis_1";
constexpr std::wstring_view kLeftOutSubkey = L"PNP FAT12";
constexpr std::wstring_view kSubkeyListProperties[] = {L"REGFLOPPY", L"REGDS1410E", L"REGDS9097E",
                                                       L"REGDS9097U"};

bool IsSubkeyListProperty(std::wstring_view condition) {
    return std::find(std::begin(kSubkeyListProperties), std::end(kSubkeyListProperties), condition) !=
           std::end(kSubkeyListProperties);
}

} // namespace

ReaderMigration DecideReaderMigration(std::wstring_view name, std::wstring_view condition) {
    const bool subkeyList = IsSubkeyListProperty(condition);
    if ((name.find(kDefaultNameMark) == std::wstring_view::npos && !subkeyList) ||
        condition.find(L' ') != std::wstring_view::npos) {
        return ReaderMigration::Skip;
    }
    if (condition == kKeyStorePathProperty) {
        return ReaderMigration::KeyStorePath;
    }
    return subkeyList ? ReaderMigration::SubkeyList : ReaderMigration::Flag;
}

std::wstring JoinSubkeyList(const std::vector<std::wstring>& subkeys) {
    std::wstring list;
    for (std::size_t index = 0; index < subkeys.size(); ++index) {
        if (subkeys[index] == kLeftOutSubkey) {
            continue;
        }
        if (index > 0) {
            list += L',';
        }
        list += subkeys[index];
    }
    return list;
}

std::wstring KeyStorePathPrefix(std::wstring_view path) {
    const std::size_t end = path.find(kKeyStorePathEnd);
    return end == std::wstring_view::npos ? std::wstring() : std::wstring(path.substr(0, end));
}

} // namespace setuputils
