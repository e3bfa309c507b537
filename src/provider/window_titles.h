// Titles of the installer windows that own the provider's warning boxes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

// The installer's main window for the product, most specific title first. In
// English (language "1033") "<name><version> Setup", then "<name> Setup";
// in any other language the Russian "Установка \"<name><version>\"", then the
// same without the version. Name and version are joined without a blank.
std::vector<std::wstring> InstallerWindowTitles(std::wstring_view name, std::wstring_view version,
                                                std::wstring_view language);

// An installed product's dialog: "<name>", then "<name> <version>".
std::vector<std::wstring> ProductDialogTitles(std::wstring_view name, std::wstring_view version);

} // namespace setuputils
