// Removes one driver package installed by InstallService: stops and deletes
// its service, deletes the files its install section copied and the registry
// values it added, removes the staged INF and the INF location value.
#pragma once

#include <string>

#include <windows.h>
#include <setupapi.h>

#include "drivers/removers.h"
#include "frame/install_log.h"

namespace setuputils {

// Never fails: every problem is reported and the next step runs, or the
// removal ends. `serviceName` may be null; `reserved` is always 0.
void RemoveDriverPackage(const std::wstring& componentId, const wchar_t* serviceName, unsigned reserved,
                         unsigned flags, InstallLog& log);

// Stops (unless flag 0x100 says not to) and deletes the service `name`.
void StopDeleteService(const std::wstring& name, unsigned flags, InstallLog& log);

// Returns 0 when the service is stopped or absent, else the error.
DWORD StopService(SC_HANDLE manager, const std::wstring& name, InstallLog& log);
// Returns 0 when the service is deleted or absent, else the error.
DWORD DeleteDriverService(SC_HANDLE manager, const std::wstring& name, InstallLog& log);

// Runs the file remover on the target of every file the CopyFiles lines of
// `section` copy. Returns 0 or 1603.
UINT RemoveQueuedFiles(const std::wstring& infPath, HINF inf, const std::wstring& section,
                       FileRemover& remover, InstallLog& log);

// Runs the registry-value remover on the values of the AddReg lines of the
// install section and of the service's event-log section.
void RemoveInfRegistry(HINF inf, const std::wstring& installSection, const std::wstring& servicesSection,
                       RegistryValueRemover& remover, const std::wstring& serviceName, InstallLog& log);

// Uninstalls the staged INF from the INF store and deletes it and its .pnf.
void RemoveOemInf(const std::wstring& stagedPath, InstallLog& log);

} // namespace setuputils
