// SetSCardSvrAutoStart (deferred; no CustomActionData): makes sure the system
// smart-card service starts automatically. A disabled one (or one set to
// boot or system start) is switched to automatic start and started; one that
// starts automatically or on demand is left alone.
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

constexpr wchar_t kSmartCardService[] = L"SCardSvr";

void StartSmartCardServiceAutomatically(MSIHANDLE session) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        ReportServiceError(session, GetLastError(), kSmartCardService);
        return;
    }
    ServiceHandle service(OpenServiceW(manager.get(), kSmartCardService, SERVICE_ALL_ACCESS));
    if (!service) {
        return;
    }
    LocalMemory config;
    if (DWORD error = ReadServiceConfig(service.get(), config); error != ERROR_SUCCESS) {
        ReportServiceError(session, error, kSmartCardService);
        return;
    }
    const QUERY_SERVICE_CONFIGW& current = ServiceConfig(config);
    if (!NeedsAutomaticStart(current.dwStartType)) {
        return;
    }
    if (ChangeServiceConfigW(service.get(), current.dwServiceType, SERVICE_AUTO_START, current.dwErrorControl,
                             nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr)) {
        StartServiceW(service.get(), 0, nullptr);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI SetSCardSvrAutoStart(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"SetSCardSvrAutoStart",
                                               setuputils::StartSmartCardServiceAutomatically);
}
