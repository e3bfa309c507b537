// The rules of the default-provider repair that need no system calls: the
// provider list the package hands over and the decisions taken on a default.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

// One entry of the list: a provider type and the package's provider for it.
struct PackageProvider {
    int type = 0;
    std::wstring name;
    bool operator==(const PackageProvider&) const = default;
};

// "75:Name/24:Other...": while a ":" remains, the text before the first ":"
// is the type (read as _wtoi reads it), the text after it up to the next "/"
// (or the end) the name; that much, the "/" included, is consumed.
std::vector<PackageProvider> ParseProviderList(std::wstring_view list);

// _wtoi: leading blanks, an optional sign, then digits up to the first other
// character; 0 when there are none; saturated on overflow.
int ReadDecimal(std::wstring_view text);

// A working default is kept as it stands when its PP_VERSION has a major
// version (bits 8-15) of at least 3 and it answers both private parameters.
bool IsCurrentProvider(unsigned long version, bool answersParam129, bool answersParam138);

// Types whose working default gives way to the package's provider unless it
// is current: the GOST types 75, 80 and 81.
bool ReplacesOutdatedDefault(int type);

// The system provider tried first when the default of `type` does not work
// and the package's provider cannot stand in: type 1 and type 24 have one,
// other types none (empty).
std::wstring_view SystemFallbackProvider(int type);

} // namespace setuputils
