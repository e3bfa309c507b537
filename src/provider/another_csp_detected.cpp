// AnotherCSPDetected (immediate): warns when other GOST providers or earlier
// editions of this one are installed. The package's message text
// ("AnotherCSPDetected") is followed by the name of each installed product of
// the list, one per line, and shown in a warning box owned by the installer's
// dialog, unless the installation is silent (UI level 2). The installation
// goes on either way.
#include <string>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/product_codes.h"
#include "frame/session.h"
#include "provider/warning_box.h"
#include "provider/window_titles.h"

namespace setuputils {
namespace {

constexpr wchar_t kSilentUiLevel[] = L"2";
constexpr wchar_t kLineBreak[] = L"\n";

// The dialog of the package's own product, by its installed name, then by
// name and version; failing both, any dialog.
HWND FindProductDialog(const std::wstring& productCode) {
    const std::wstring name = GetProductInfo(productCode.c_str(), INSTALLPROPERTY_INSTALLEDPRODUCTNAME);
    const std::wstring version = GetProductInfo(productCode.c_str(), INSTALLPROPERTY_VERSIONSTRING);
    for (const std::wstring& title : ProductDialogTitles(name, version)) {
        if (HWND window = FindWindowW(kDialogClass, title.c_str())) {
            return window;
        }
    }
    return FindWindowW(kDialogClass, nullptr);
}

void Detect(MSIHANDLE session) {
    std::wstring ownProductCode;
    std::wstring text;
    GetPropertyString(session, L"ProductCode", ownProductCode);
    GetPropertyString(session, L"AnotherCSPDetected", text);
    text += kLineBreak;
    bool found = false;
    for (const wchar_t* productCode : kConflictingProductCodes) {
        if (_wcsicmp(ownProductCode.c_str(), productCode) == 0 ||
            MsiQueryProductStateW(productCode) != INSTALLSTATE_DEFAULT) {
            continue;
        }
        text += GetProductInfo(productCode, INSTALLPROPERTY_INSTALLEDPRODUCTNAME) + kLineBreak;
        found = true;
    }
    std::wstring uiLevel;
    GetPropertyString(session, L"UILevel", uiLevel);
    if (!found || uiLevel == kSilentUiLevel) {
        return;
    }
    std::wstring caption;
    GetPropertyString(session, L"WarningTitle", caption);
    ShowWarning(FindProductDialog(ownProductCode), text, caption);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI AnotherCSPDetected(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"AnotherCSPDetected", setuputils::Detect);
}
