// CheckVipNet (immediate): sets "VIPNETFOUND" to "1" when the outside vendor's
// ViPNet CSP is on the machine: a product of one of its packages' upgrade
// codes is installed, or one of its services is registered.
#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/product_codes.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kFoundProperty[] = L"VIPNETFOUND";
constexpr wchar_t kFound[] = L"1";
constexpr const wchar_t* kVipNetServices[] = {L"itcspe", L"itcspe64", L"VDMonDrv"};
constexpr DWORD kProductCodeLength = 39;

bool VipNetPackageInstalled() {
    for (const wchar_t* upgradeCode : kVipNetUpgradeCodes) {
        wchar_t product[kProductCodeLength] = L"";
        if (MsiEnumRelatedProductsW(upgradeCode, 0, 0, product) == ERROR_SUCCESS) {
            return true;
        }
    }
    return false;
}

void Check(MSIHANDLE session) {
    if (VipNetPackageInstalled()) {
        SetProperty(session, kFoundProperty, kFound);
        return;
    }
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE));
    if (!manager) {
        return;
    }
    // Every service is looked for, also after one was found.
    for (const wchar_t* name : kVipNetServices) {
        if (ServiceHandle(OpenServiceW(manager.get(), name, SERVICE_QUERY_STATUS))) {
            SetProperty(session, kFoundProperty, kFound);
        }
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI CheckVipNet(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"CheckVipNet", setuputils::Check);
}
