// The security authority's package list in memory: the entries of a
// REG_MULTI_SZ value, edited by name and joined again.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

using PackageList = std::vector<std::wstring>;

// Whether two package names are the same package (the caller decides how case counts).
using PackageNamesEqual = bool (*)(const std::wstring& entry, const std::wstring& name);

// The data of the value (as characters) cut at every NUL: each NUL ends an
// entry, so the closing NUL of a well-formed value gives one final empty
// entry; text after the last NUL is an entry of its own. A missing or empty
// value is the list of one empty entry.
PackageList SplitPackageList(std::wstring_view data);

// Inserts or removes `name`. Every entry equal to the name is dropped, except
// the first one when inserting, which stays as it is spelled. A name still to
// insert goes just before the first empty entry, where the system stops
// reading the list: after the last package of a well-formed value (and before
// an empty entry inside one); before the last package of a value without its
// final empty entry. A copy past the first empty entry is not read by the
// system: it does not count as listed.
PackageList EditPackageList(const PackageList& entries, const std::wstring& name, bool insert,
                            PackageNamesEqual equal);

// Each entry followed by its NUL.
std::wstring JoinPackageList(const PackageList& entries);

} // namespace setuputils
