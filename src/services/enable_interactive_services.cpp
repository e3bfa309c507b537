// EnableInteractiveServices (deferred; no CustomActionData): clears the system
// switch that forbids interactive services ("NoInteractiveServices" = 0).
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

constexpr wchar_t kWindowsControlKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Windows";
constexpr wchar_t kNoInteractiveServicesValue[] = L"NoInteractiveServices";
constexpr DWORD kInteractiveServicesAllowed = 0;

void AllowInteractiveServices() {
    RegKey key;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kWindowsControlKey, 0, nullptr, 0, KEY_WRITE, nullptr, key.put(),
                        nullptr) != ERROR_SUCCESS) {
        return;
    }
    WriteDwordValue(key.get(), kNoInteractiveServicesValue, kInteractiveServicesAllowed);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI EnableInteractiveServices(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"EnableInteractiveServices",
                                               [] { setuputils::AllowInteractiveServices(); });
}
