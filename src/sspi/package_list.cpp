#include "sspi/package_list.h"

namespace setuputils {

PackageList SplitPackageList(std::wstring_view data) {
    PackageList entries;
    while (!data.empty()) {
        const std::size_t end = data.find(L'\0');
        entries.emplace_back(data.substr(0, end));
        data.remove_prefix(end == std::wstring_view::npos ? data.size() : end + 1);
    }
    if (entries.empty()) {
        entries.emplace_back();
    }
    return entries;
}

PackageList EditPackageList(const PackageList& entries, const std::wstring& name, bool insert,
                            PackageNamesEqual equal) {
    PackageList edited;
    bool pending = insert;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::wstring& entry = entries[i];
        if (equal(entry, name)) {
            if (pending) {
                edited.push_back(entry);
                pending = false;
            }
            continue;
        }
        if (pending && i + 1 == entries.size()) {
            edited.push_back(name);
            pending = false;
        }
        edited.push_back(entry);
    }
    return edited;
}

std::wstring JoinPackageList(const PackageList& entries) {
    std::wstring joined;
    for (const std::wstring& entry : entries) {
        joined += entry;
        joined += L'\0';
    }
    return joined;
}

} // namespace setuputils
