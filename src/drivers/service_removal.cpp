// Stopping and deleting a driver package's service.
#include "drivers/remove_driver_package.h"

#include "drivers/driver_rules.h"
#include "drivers/inf_path.h"
#include "frame/handles.h"

namespace setuputils {
namespace {

// Opens the service `name` for stopping or deleting. A service that does not
// exist is reported with `missingFormat` and is no error; without a handle the
// result is 0 or the error of the open.
DWORD OpenServiceToRemove(SC_HANDLE manager, const std::wstring& name, const wchar_t* missingFormat,
                          InstallLog& log, ServiceHandle& service) {
    service.reset(OpenServiceW(manager, name.c_str(), SERVICE_ALL_ACCESS));
    if (service) {
        return ERROR_SUCCESS;
    }
    DWORD error = GetLastError();
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
        LogInfo(log, missingFormat, name.c_str());
        return ERROR_SUCCESS;
    }
    LogError(log, L"OpenService");
    return error;
}

} // namespace

void StopDeleteService(const std::wstring& name, unsigned flags, InstallLog& log) {
    LogInfo(log, L"StopDeleteService: %ls.", name.c_str());
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        LogError(log, L"OpenSCManager");
        return;
    }
    if ((flags & kFlagDeleteWithoutStop) != 0) {
        LogInfo(log, L"Don't stop driver");
    } else if (DWORD error = StopService(manager.get(), name, log); error != ERROR_SUCCESS) {
        SetLastError(error);
        LogError(log, L"StopDriver");
    }
    if (DWORD error = DeleteDriverService(manager.get(), name, log); error != ERROR_SUCCESS) {
        SetLastError(error);
        LogError(log, L"RemoveDriver");
    }
}

DWORD StopService(SC_HANDLE manager, const std::wstring& name, InstallLog& log) {
    ServiceHandle service;
    if (DWORD error = OpenServiceToRemove(manager, name, L"No service %ls to stop.", log, service);
        !service) {
        return error;
    }
    SERVICE_STATUS status{};
    if (ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        LogInfo(log, L"Service %ls stopped.", name.c_str());
        return ERROR_SUCCESS;
    }
    DWORD error = GetLastError();
    switch (error) {
    case ERROR_SUCCESS:
    case ERROR_DEPENDENT_SERVICES_RUNNING:
    case ERROR_INVALID_SERVICE_CONTROL:
    case ERROR_SERVICE_CANNOT_ACCEPT_CTRL:
    case ERROR_SERVICE_NOT_ACTIVE:
        if (status.dwCurrentState != SERVICE_STOPPED) {
            LogInfo(log, L"Service %ls can't stop.", name.c_str());
            return ErrorOrInstallFailure(error);
        }
        LogInfo(log, L"Service %ls already stoped.", name.c_str());
        return ERROR_SUCCESS;
    default:
        LogError(log, L"ControlService(SERVICE_CONTROL_STOP)");
        return error;
    }
}

DWORD DeleteDriverService(SC_HANDLE manager, const std::wstring& name, InstallLog& log) {
    ServiceHandle service;
    if (DWORD error = OpenServiceToRemove(manager, name, L"No service %ls to remove.", log, service);
        !service) {
        return error;
    }
    if (!DeleteService(service.get())) {
        DWORD error = GetLastError();
        LogError(log, L"DeleteService");
        return error;
    }
    LogInfo(log, L"Service %ls deleted.", name.c_str());
    return ERROR_SUCCESS;
}

} // namespace setuputils
