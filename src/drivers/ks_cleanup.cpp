// KSCleanup (immediate, at the end of the sequence): turns the reboot marker
// left by the deferred driver actions into a reboot request and removes it.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/install_log.h"
#include "frame/product_codes.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

UINT Cleanup(MSIHANDLE session) {
    std::wstring markerPath = std::wstring(kUninstallKeyPath) + kDriverInstallerProductCode;
    {
        RegKey marker;
        if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, markerPath.c_str(), 0, KEY_READ, marker.put()) !=
            ERROR_SUCCESS) {
            return ERROR_SUCCESS;
        }
        std::wstring reboot;
        if (!ReadStringValue(marker.get(), kRebootValueName, reboot)) {
            return ERROR_SUCCESS;
        }
        if (reboot == kRebootForced) {
            // Read once more: the marker stays unless the request is certain to be made.
            if (!ReadStringValue(marker.get(), kRebootValueName, reboot)) {
                return ERROR_SUCCESS;
            }
            if (MsiSetMode(session, MSIRUNMODE_REBOOTATEND, TRUE) != ERROR_SUCCESS) {
                return ERROR_SUCCESS;
            }
        }
    }

    RegKey uninstall;
    LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kUninstallKeyPath, 0, KEY_ALL_ACCESS, uninstall.put());
    if (status != ERROR_SUCCESS) {
        return static_cast<UINT>(status);
    }
    return static_cast<UINT>(RegDeleteKeyW(uninstall.get(), kDriverInstallerProductCode));
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI KSCleanup(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"KSCleanup", setuputils::Cleanup);
}
