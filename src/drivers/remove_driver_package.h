// Removes one driver package installed by InstallService: stops and deletes
// its service, deletes the files its install section copied and the registry
// values it added, removes the staged INF and the INF location value.
#pragma once

#include <optional>
#include <string>

#include <windows.h>
#include <setupapi.h>

#include "drivers/removers.h"
#include "frame/install_log.h"

namespace setuputils {

// Never fails: every problem is reported and the next step runs, or the
// removal ends. A `givenService` (from the action data) goes even when the
// package's INF cannot be read or names another service; the INF's own
// removal then does not run.
void RemoveDriverPackage(const std::wstring& componentId, const std::optional<std::wstring>& givenService,
                         unsigned flags, InstallLog& log);

// Looked up by name in the loaded setupapi.dll: older systems' setupapi.dll
// lacks some functions.
template <typename Function>
Function FindSetupApiFunction(const char* name) {
    HMODULE setupApi = GetModuleHandleW(L"setupapi.dll");
    if (setupApi == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(setupApi, name)));
}

// The steps of the removal, in service_removal.cpp and inf_removal.cpp.

// Stops (unless flag 0x100 says not to) and deletes the service `name`.
void StopDeleteService(const std::wstring& name, unsigned flags, InstallLog& log);

// Returns 0 when the service is stopped or absent, else the error.
DWORD StopService(SC_HANDLE manager, const std::wstring& name, InstallLog& log);
// Returns 0 when the service is deleted or absent, else the error.
DWORD DeleteDriverService(SC_HANDLE manager, const std::wstring& name, InstallLog& log);

// Runs the file remover on the target of every file the CopyFiles lines of
// `section` copy; a queue that cannot be built or scanned is reported.
void RemoveQueuedFiles(const std::wstring& infPath, HINF inf, const std::wstring& section,
                       FileRemover& remover, InstallLog& log);

// Runs the registry-value remover on the values of the AddReg lines of the
// install section and of the service's event-log section.
void RemoveInfRegistry(HINF inf, const std::wstring& installSection, const std::wstring& servicesSection,
                       RegistryValueRemover& remover, const std::wstring& serviceName, InstallLog& log);

// Uninstalls the staged INF from the INF store and deletes it and its .pnf.
void RemoveOemInf(const std::wstring& stagedPath, InstallLog& log);

} // namespace setuputils
