// KSProcess (immediate): schedules the installation or removal of every driver
// package of the NVDriverPackages table whose component changes in this
// transaction.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "drivers/driver_packages_table.h"
#include "drivers/driver_rules.h"
#include "drivers/schedule_driver_package.h"
#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "frame/windows_version.h"

namespace setuputils {
namespace {

constexpr wchar_t kDriverPackagesQuery[] =
    L"SELECT `NVDriverPackages`.`Component`, `Component`.`ComponentId`, `File`.`FileName`, "
    L"`Component`.`Directory_`, `NVDriverPackages`.`Flags`, `NVDriverPackages`.`ReferenceComponents` "
    L"FROM `NVDriverPackages`, `Component`, `File` "
    L"WHERE `NVDriverPackages`.`Component` = `Component`.`Component` AND `Component`.`KeyPath` = "
    L"`File`.`File`";

struct DriverPackage {
    std::wstring component;
    std::wstring componentId;
    std::wstring fileName;
    std::wstring directory; // the resolved target path
    unsigned flags = 0;
    std::wstring reference;
    ComponentStates states;
    ComponentStates referenceStates; // both absent when there is no reference
};

// Reads one fetched row and what the installer knows of it. Returns the OR of
// the statuses of the calls that failed.
UINT ReadDriverPackage(MSIHANDLE session, MSIHANDLE record, DriverPackage& package) {
    std::wstring directoryKey;
    UINT status = GetRecordString(record, 1, package.component);
    status |= GetRecordString(record, 2, package.componentId);
    status |= GetRecordString(record, 3, package.fileName);
    status |= GetRecordString(record, 4, directoryKey);
    status |= GetRecordString(record, 6, package.reference);
    package.flags = static_cast<unsigned>(MsiRecordGetInteger(record, 5));

    status |= GetTargetPath(session, directoryKey.c_str(), package.directory);
    status |= GetComponentStates(session, package.component, package.states);
    if (!package.reference.empty()) {
        status |= GetComponentStates(session, package.reference, package.referenceStates);
    }
    return status;
}

UINT ScheduleIfChanging(MSIHANDLE session, const DriverPackage& package, bool msInfVariant) {
    std::wstring fileName = msInfVariant ? AddMsInfSuffix(package.fileName) : package.fileName;
    switch (DecideDriverPackageStep(package.states, !package.reference.empty(), package.referenceStates)) {
    case DriverPackageStep::Install:
        return ScheduleDriverPackage(session, true, fileName, package.directory, package.componentId,
                                     package.flags);
    case DriverPackageStep::Uninstall:
        return ScheduleDriverPackage(session, false, fileName, package.directory, package.componentId,
                                     package.flags);
    case DriverPackageStep::None:
        break;
    }
    return ERROR_SUCCESS;
}

UINT ProcessDriverPackages(MSIHANDLE session) {
    if (!HasDriverPackagesTable(session)) {
        return ERROR_SUCCESS;
    }
    View view;
    if (OpenView(session, kDriverPackagesQuery, view) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    const bool msInfVariant = IsWindows10OrLater();
    // A fetch that fails fails the action as a package does.
    return ForEachRecord(view.get(), [&](MSIHANDLE record) {
        DriverPackage package;
        const UINT status = ReadDriverPackage(session, record, package);
        return status == ERROR_SUCCESS ? ScheduleIfChanging(session, package, msInfVariant) : status;
    });
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI KSProcess(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"KSProcess", setuputils::ProcessDriverPackages);
}
