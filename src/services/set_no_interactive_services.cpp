// SetNoInteractiveServices (immediate): from Windows 10 on, where services can
// no longer show windows on the desktop, sets "NOINTERACTIVESERVICES" to "1";
// the package passes it on to MsiCreateService as the non-interactive flag.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "frame/windows_version.h"

extern "C" UINT WINAPI SetNoInteractiveServices(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"SetNoInteractiveServices", [&] {
        if (setuputils::IsWindows10OrLater()) {
            setuputils::SetProperty(session, L"NOINTERACTIVESERVICES", L"1");
        }
    });
}
