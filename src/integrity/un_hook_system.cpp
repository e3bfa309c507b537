// UnHookSystem (no CustomActionData): asks the provider's kernel component,
// through its control device, to remove its hooks from the system. Without
// the device (the component is not loaded) there is nothing to unhook; the
// component's answer is not looked at. Never fails.
#include <windows.h>
#include <winioctl.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr wchar_t kControlDevice[] = L"\\\\.\\Global\\NvnCtrl";
constexpr DWORD kUnhookControlCode = CTL_CODE(FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS);
static_assert(kUnhookControlCode == 0x222000);

void RequestUnhook() {
    // No access asked: a control code of FILE_ANY_ACCESS needs none.
    FileHandle device(CreateFileW(kControlDevice, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
    if (!device) {
        return;
    }
    DWORD returned = 0;
    DeviceIoControl(device.get(), kUnhookControlCode, nullptr, 0, nullptr, 0, &returned, nullptr);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI UnHookSystem(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"UnHookSystem", setuputils::RequestUnhook);
}
