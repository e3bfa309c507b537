#include "sspi/package_list.h"

#include <algorithm>

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
    // The system reads the list up to its first empty entry (for a well-formed
    // value, the final one). A name to insert goes in just before it, or before
    // the last entry of a value without one; a copy past it is not read, so
    // it does not count as listed and goes.
    const std::size_t unread =
        static_cast<std::size_t>(std::find(entries.begin(), entries.end(), std::wstring()) - entries.begin());
    const std::size_t insertAt = std::min(unread, entries.size() - 1);
    PackageList edited;
    bool pending = insert;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const std::wstring& entry = entries[i];
        if (equal(entry, name)) {
            if (pending && i < unread) {
                edited.push_back(entry);
                pending = false;
            }
            continue;
        }
        if (pending && i == insertAt) {
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
