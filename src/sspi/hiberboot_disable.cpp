// HiberbootDisable: turns Windows fast start-up off while the package is
// installed, saving the switch so that removal or rollback can restore it.
// Never fails.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "sspi/security_packages.h"

namespace setuputils {
namespace {

LSTATUS WriteDword(HKEY key, const wchar_t* name, DWORD value) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
}

void DisableFastStartup() {
    RegKey power = OpenPowerKey();
    DWORD enabled = 0;
    DWORD size = sizeof(enabled);
    DWORD type = REG_NONE;
    if (!power ||
        RegQueryValueExW(power.get(), kFastStartupValue, nullptr, &type, reinterpret_cast<BYTE*>(&enabled),
                         &size) != ERROR_SUCCESS ||
        type != REG_DWORD || enabled == 0) {
        return;
    }
    if (WriteDword(power.get(), kSavedFastStartupValue, enabled) == ERROR_SUCCESS) {
        WriteDword(power.get(), kFastStartupValue, 0);
        RegFlushKey(power.get());
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI HiberbootDisable(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"HiberbootDisable", setuputils::DisableFastStartup);
}
