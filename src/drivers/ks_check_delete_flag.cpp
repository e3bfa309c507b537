// KSCheckDeleteFlag (immediate): sets DELETEFLAG when the running driver of a
// package being installed has asked to be deleted. Never fails.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "drivers/driver_packages_table.h"
#include "drivers/driver_rules.h"
#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kDriverComponentsQuery[] =
    L"SELECT `NVDriverPackages`.`Component`, `Component`.`ComponentId`, `File`.`FileName`, "
    L"`Component`.`Directory_`, `NVDriverPackages`.`Flags` "
    L"FROM `NVDriverPackages`, `Component`, `File` "
    L"WHERE `NVDriverPackages`.`Component` = `Component`.`Component` AND `Component`.`KeyPath` = "
    L"`File`.`File`";

constexpr wchar_t kServicesKeyPath[] = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr wchar_t kDeleteFlagValue[] = L"DeleteFlag";
constexpr wchar_t kDeleteFlagProperty[] = L"DELETEFLAG";

bool IsServiceRunning(SC_HANDLE manager, const std::wstring& name) {
    ServiceHandle service(OpenServiceW(manager, name.c_str(), SERVICE_ALL_ACCESS));
    SERVICE_STATUS status{};
    return service && QueryServiceStatus(service.get(), &status) && status.dwCurrentState == SERVICE_RUNNING;
}

// True when the service's key holds a non-zero REG_DWORD "DeleteFlag".
bool HasDeleteFlag(const std::wstring& name) {
    RegKey key;
    std::wstring path = kServicesKeyPath + name;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, key.put()) != ERROR_SUCCESS) {
        return false;
    }
    DWORD value = 0;
    return ReadDwordValue(key.get(), kDeleteFlagValue, value) && value != 0;
}

// True when the component is being installed and its running service is flagged for deletion.
bool ComponentDriverAskedForDeletion(MSIHANDLE session, SC_HANDLE manager, MSIHANDLE record) {
    std::wstring component;
    ComponentStates states;
    if (GetRecordString(record, 1, component) != ERROR_SUCCESS ||
        GetComponentStates(session, component, states) != ERROR_SUCCESS) {
        return false;
    }
    if (states.action != kStateLocal) {
        return false;
    }
    std::wstring service = ServiceNameFromComponent(component);
    return IsServiceRunning(manager, service) && HasDeleteFlag(service);
}

void CheckDeleteFlag(MSIHANDLE session) {
    if (!HasDriverPackagesTable(session)) {
        return;
    }
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        return;
    }
    View view;
    if (OpenView(session, kDriverComponentsQuery, view) != ERROR_SUCCESS) {
        return;
    }
    // The first component whose driver asks for it sets the property and ends the walk.
    ForEachRecord(view.get(), [&](MSIHANDLE record) {
        if (!ComponentDriverAskedForDeletion(session, manager.get(), record)) {
            return static_cast<UINT>(ERROR_SUCCESS);
        }
        SetProperty(session, kDeleteFlagProperty, L"1");
        return static_cast<UINT>(ERROR_NO_MORE_ITEMS);
    });
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI KSCheckDeleteFlag(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"KSCheckDeleteFlag", setuputils::CheckDeleteFlag);
}
