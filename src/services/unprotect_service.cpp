// UnprotectService (deferred; CustomActionData: a service name): turns a
// service of the shared service host, protected (" -p") or not, into a service
// of its own process. The service is stopped first and started again
// afterwards when it was running; its access list is left alone.
#include <optional>
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "services/service_config.h"
#include "services/service_fields.h"

namespace setuputils {
namespace {

// Own process, and without the protected-host option on its command line.
void MakeOwnProcess(MSIHANDLE session, SC_HANDLE service, const std::wstring& name) {
    LocalMemory config;
    if (DWORD error = ReadServiceConfig(service, config); error != ERROR_SUCCESS) {
        ReportServiceError(session, error, name.c_str());
        return;
    }
    const QUERY_SERVICE_CONFIGW& current = ServiceConfig(config);
    const std::optional<ServiceReconfiguration> change = UnprotectedConfiguration(
        current.lpBinaryPathName != nullptr ? current.lpBinaryPathName : L"", current.dwServiceType);
    if (change && !ChangeServiceConfigW(service, change->type, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                        change->binaryPath.c_str(), nullptr, nullptr, nullptr, nullptr,
                                        nullptr, nullptr)) {
        ReportServiceError(session, GetLastError(), name.c_str());
    }
}

UINT Unprotect(MSIHANDLE session) {
    std::wstring name;
    if (GetPropertyString(session, L"CustomActionData", name) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ReportServiceError(session, GetLastError(), name.c_str());
        return ERROR_SUCCESS;
    }
    ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (!service) {
        return ERROR_SUCCESS;
    }
    const bool restart = StopToRestartLater(service.get());
    MakeOwnProcess(session, service.get(), name);
    if (restart) {
        StartServiceW(service.get(), 0, nullptr);
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI UnprotectService(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"UnprotectService", setuputils::Unprotect);
}
