// The package's NVDriverPackages table and the component states of its rows.
#pragma once

#include <string>

#include <windows.h>
#include <msi.h>

#include "drivers/driver_rules.h"

namespace setuputils {

inline constexpr wchar_t kDriverPackagesTable[] = L"NVDriverPackages";

// True when the active database has the table, persistent or temporary.
bool HasDriverPackagesTable(MSIHANDLE session);

// The installed and action states of `component`. Returns the installer status.
UINT GetComponentStates(MSIHANDLE session, const std::wstring& component, ComponentStates& states);

} // namespace setuputils
