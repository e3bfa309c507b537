// Installs one driver package from its INF: stages the INF in the system INF
// store, records where the staged copy went, runs the install section,
// installs the driver service and starts it.
#pragma once

#include <optional>
#include <string>

#include <windows.h>

#include "drivers/driver_rules.h"
#include "drivers/inf_path.h"
#include "frame/install_log.h"

namespace setuputils {

// Install operations of the install section: log configuration up to profile items.
inline constexpr UINT kInstallSectionOperations = 0x1FF;

// Returns 0, 6 when the INF cannot be opened, or the Win32 error of the
// failing step (1603 when it left none).
DWORD InstallService(const std::wstring& infPath, const std::wstring& componentId, HWND owner, unsigned flags,
                     InstallLog& log);

// Stages `inf` with SetupCopyOEMInfW from `directory`; the staged path, or
// nothing after reporting "SetupCopyOEMInf".
std::optional<std::wstring> CopyOemInf(const InfPath& inf, InstallLog& log);

// Opens the staged copy; one that cannot be read is emptied and staged again.
// Returns the path of the readable staged copy, or nothing.
std::optional<std::wstring> CheckStagedInf(const InfPath& inf, const std::wstring& staged, InstallLog& log);

// The file queue callback of the install section: reports copies through the
// log (its context) and aborts any delete or rename with 1003.
UINT CALLBACK InstallQueueCallback(PVOID context, UINT notification, UINT_PTR param1, UINT_PTR param2);

// Starts the driver service `name`, stopping it first when it runs. Returns 0 or the error.
DWORD StartDriver(SC_HANDLE manager, const std::wstring& name, InstallLog& log);

} // namespace setuputils
