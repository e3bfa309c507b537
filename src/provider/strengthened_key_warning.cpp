// StrengthenedKeyWarning (immediate): shows the package's warning about
// strengthened keys ("StrengthenedKeyWarningText", caption "WarningTitle")
// over the installer's main window, found by the title the installer gives
// it for this product and language.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "provider/warning_box.h"
#include "provider/window_titles.h"

namespace setuputils {
namespace {

constexpr wchar_t kInstallerWindowClass[] = L"MsiDialogCloseClass";

std::wstring Property(MSIHANDLE session, const wchar_t* name) {
    std::wstring value;
    GetPropertyString(session, name, value);
    return value;
}

// The installer's window by its full title, then by the title without the
// version, then any installer window; null when there is none.
HWND FindInstallerWindow(MSIHANDLE session) {
    const std::wstring name = Property(session, L"ProductName");
    const std::wstring version = Property(session, L"ProductVersion");
    const std::wstring language = Property(session, L"ProductLanguage");
    for (const std::wstring& title : InstallerWindowTitles(name, version, language)) {
        if (HWND window = FindWindowW(kInstallerWindowClass, title.c_str())) {
            return window;
        }
    }
    return FindWindowW(kInstallerWindowClass, nullptr);
}

void Warn(MSIHANDLE session) {
    const HWND owner = FindInstallerWindow(session);
    ShowWarning(owner, Property(session, L"StrengthenedKeyWarningText"), Property(session, L"WarningTitle"));
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI StrengthenedKeyWarning(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"StrengthenedKeyWarning", setuputils::Warn);
}
