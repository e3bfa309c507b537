// CheckModeOn / CheckModeOff (no CustomActionData): switch the provider's
// integrity check mode on (2) or off (0). Neither ever fails: without access
// to the key the mode stays as it was.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

constexpr wchar_t kIntegrityKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnIntegrity";
constexpr wchar_t kCheckModeValue[] = L"CheckMode";
constexpr DWORD kCheckModeOn = 2;
constexpr DWORD kCheckModeOff = 0;

void SetCheckMode(DWORD mode) {
    RegKey integrity;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kIntegrityKey, 0, nullptr, 0, KEY_WRITE, nullptr, integrity.put(),
                        nullptr) != ERROR_SUCCESS) {
        return;
    }
    WriteDwordValue(integrity.get(), kCheckModeValue, mode);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI CheckModeOn(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"CheckModeOn",
                                               [] { setuputils::SetCheckMode(setuputils::kCheckModeOn); });
}

extern "C" UINT WINAPI CheckModeOff(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"CheckModeOff",
                                               [] { setuputils::SetCheckMode(setuputils::kCheckModeOff); });
}
