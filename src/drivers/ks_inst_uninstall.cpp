// KSInstUninstall (deferred; KSUninstall and KSUninstall64 in the package, and
// under the name KSInstRollback the rollback of an installation): removes the
// driver package named by its driver action data.
#include <windows.h>
#include <msiquery.h>

#include "drivers/remove_driver_package.h"
#include "exports.h"
#include "frame/action_guard.h"
#include "frame/install_log.h"
#include "frame/session.h"

namespace setuputils {
namespace {

UINT UninstallDriverPackage(MSIHANDLE session) {
    LoadLibraryW(L"setupapi.dll");
    SessionLog log(session);
    std::optional<DriverActionData> data = ParseDriverActionData(session, true);
    if (!data) {
        return ERROR_INSTALL_FAILURE;
    }
    RemoveDriverPackage(data->componentId, data->serviceName, static_cast<unsigned>(data->flags), log);
    ReportProgress(session, static_cast<int>(data->progressTicks));
    // Removal never fails the installation.
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI KSInstUninstall(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"KSInstUninstall", setuputils::UninstallDriverPackage);
}
