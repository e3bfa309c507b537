// KSInstCleanUp (deferred): removes the reboot marker value and the marker
// keys it leaves empty. Never fails.
#include <windows.h>
#include <msiquery.h>

#include "drivers/removers.h"
#include "exports.h"
#include "frame/action_guard.h"
#include "frame/install_log.h"
#include "frame/product_codes.h"

extern "C" UINT WINAPI KSInstCleanUp(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"KSInstCleanUp", [&] {
        setuputils::SessionLog log(session);
        setuputils::RegistryValueRemover remover(log);
        const std::wstring marker =
            std::wstring(setuputils::kUninstallKeyPath) + setuputils::kDriverInstallerProductCode;
        remover.Remove(HKEY_LOCAL_MACHINE, marker, setuputils::kRebootValueName);
    });
}
