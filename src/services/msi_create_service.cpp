// MsiCreateService (deferred; CustomActionData: "name/display name/non-interactive
// flag/local group"): creates the provider's host service, run by the system's
// shared service host in the "nvcsp" group, and then the local group.
// MsiCreateServiceRollback (rollback; CustomActionData: "name/local group"):
// stops and deletes that service, then deletes the group.
#include <string>

#include <windows.h>
#include <lm.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "services/service_fields.h"

namespace setuputils {
namespace {

// The shared host runs the service, yet its type is own-process: that pairing
// is intended, and UnprotectService gives existing services the same type.
constexpr wchar_t kHostServicePath[] = L"%SystemRoot%\\system32\\svchost.exe -k nvcsp";
constexpr wchar_t kHostServiceLoadOrderGroup[] = L"SmartCardGroup";
constexpr DWORD kLocalGroupInfoLevel = 0;

void AddLocalGroup(std::wstring& name) {
    LOCALGROUP_INFO_0 group{};
    group.lgrpi0_name = name.data();
    // A group that exists already serves as well; any other failure is no reason to stop.
    NetLocalGroupAdd(nullptr, kLocalGroupInfoLevel, reinterpret_cast<BYTE*>(&group), nullptr);
}

UINT CreateHostService(MSIHANDLE session) {
    std::wstring data;
    if (GetPropertyString(session, L"CustomActionData", data) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    CreateServiceData fields = SplitCreateServiceData(data);
    const DWORD startType = HostServiceStartType(fields.name);

    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
    if (!manager) {
        ReportServiceError(session, GetLastError(), fields.name.c_str());
        return ERROR_INSTALL_FAILURE;
    }
    ServiceHandle service(CreateServiceW(manager.get(), fields.name.c_str(), fields.displayName.c_str(),
                                         SERVICE_ALL_ACCESS, HostServiceType(fields.nonInteractive),
                                         startType, SERVICE_ERROR_NORMAL, kHostServicePath,
                                         kHostServiceLoadOrderGroup, nullptr, nullptr, nullptr, nullptr));
    if (!service) {
        ReportServiceError(session, GetLastError(), fields.name.c_str());
        return ERROR_INSTALL_FAILURE;
    }
    service.reset();
    manager.reset();

    if (!fields.group.empty()) {
        AddLocalGroup(fields.group);
    }
    return ERROR_SUCCESS;
}

UINT RemoveHostService(MSIHANDLE session) {
    std::wstring data;
    if (GetPropertyString(session, L"CustomActionData", data) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    const RemoveServiceData fields = SplitRemoveServiceData(data);

    // Delete access to the manager is all the installing system asks for here.
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, DELETE));
    if (!manager) {
        return ERROR_INSTALL_FAILURE;
    }
    ServiceHandle service(OpenServiceW(manager.get(), fields.name.c_str(), SERVICE_ALL_ACCESS));
    if (!service) {
        return ERROR_INSTALL_FAILURE;
    }
    // The manager removes the service once it has stopped; no need to wait here.
    SERVICE_STATUS status{};
    ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    if (!DeleteService(service.get())) {
        return ERROR_INSTALL_FAILURE;
    }
    service.reset();
    manager.reset();

    if (!fields.group.empty()) {
        NetLocalGroupDel(nullptr, fields.group.c_str());
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI MsiCreateService(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"MsiCreateService", setuputils::CreateHostService);
}

extern "C" UINT WINAPI MsiCreateServiceRollback(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"MsiCreateServiceRollback", setuputils::RemoveHostService);
}
