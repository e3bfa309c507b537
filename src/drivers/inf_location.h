// The INF location record: one REG_SZ value per driver package, named by its
// component id, holding the path of the package's staged INF.
#pragma once

#include <string>

#include <windows.h>

#include "frame/install_log.h"

namespace setuputils {

// Component id of a package installed from the command line without one.
inline constexpr wchar_t kDefaultComponentId[] = L"ComponentID";

// Path of the record's key under HKEY_LOCAL_MACHINE.
std::wstring InfLocationKeyPath();

// Returns the registry status.
LSTATUS SaveInfLocation(const std::wstring& componentId, const std::wstring& stagedPath);
LSTATUS ReadInfLocation(const std::wstring& componentId, std::wstring& stagedPath);

// Deletes the package's value, and the key when no value is left; "Can't get
// inf file location" when the key cannot be opened.
void DeleteInfLocation(const std::wstring& componentId, InstallLog& log);

} // namespace setuputils
