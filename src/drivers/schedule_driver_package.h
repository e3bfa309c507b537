// Schedules the deferred actions that install or remove one driver package.
#pragma once

#include <string>

#include <windows.h>
#include <msi.h>

namespace setuputils {

// Progress ticks reported for each scheduled package.
inline constexpr int kScheduleProgressTicks = 30;

// Builds the package's driver action data and schedules, for an install, the
// rollback action and then the install action; for a removal, the uninstall
// action, with the service named by the INF when it names one. Returns the OR
// of the statuses of the property and action calls.
UINT ScheduleDriverPackage(MSIHANDLE session, bool install, const std::wstring& fileName,
                           const std::wstring& directory, const std::wstring& componentId, unsigned flags);

} // namespace setuputils
