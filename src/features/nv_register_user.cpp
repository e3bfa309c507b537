// NVRegisterUser (deferred; CustomActionData: "product identifier|company|user
// name"): records the three under the provider's settings as "ProductID",
// "CompanyName" and "UserName". With every field empty (the removal and
// rollback counterpart) it deletes those values instead. One information line
// says what was done; a registration that cannot be written fails with 1603.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "features/registration_data.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kAction[] = L"NVRegisterUser";
constexpr wchar_t kSettingsKey[] = L"SOFTWARE\\Norvane\\Settings";
constexpr const wchar_t* kValueNames[] = {L"ProductID", L"CompanyName", L"UserName"};

LSTATUS WriteRegistration(const Registration& registration) {
    RegKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                                     key.put(), nullptr);
    const std::wstring* values[] = {&registration.productId, &registration.company, &registration.userName};
    for (std::size_t i = 0; i < std::size(values) && status == ERROR_SUCCESS; ++i) {
        status = RegSetValueExW(key.get(), kValueNames[i], 0, REG_SZ,
                                reinterpret_cast<const BYTE*>(values[i]->c_str()),
                                static_cast<DWORD>((values[i]->size() + 1) * sizeof(wchar_t)));
    }
    return status;
}

void DeleteRegistration() {
    RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSettingsKey, 0, KEY_SET_VALUE, key.put()) == ERROR_SUCCESS) {
        for (const wchar_t* name : kValueNames) {
            RegDeleteValueW(key.get(), name);
        }
    }
}

UINT RegisterUser(MSIHANDLE session) {
    std::wstring data;
    GetPropertyString(session, L"CustomActionData", data);
    const Registration registration = ParseRegistrationData(data);
    if (registration.empty()) {
        DeleteRegistration();
        ReportInfoLine(session, L"NVRegisterUser: registration removed.");
        return ERROR_SUCCESS;
    }
    const LSTATUS status = WriteRegistration(registration);
    ReportInfoLine(
        session,
        status == ERROR_SUCCESS
            ? L"NVRegisterUser: registered " + registration.userName + L", " + registration.company + L"."
            : L"NVRegisterUser: the registration cannot be written (" + std::to_wstring(status) + L").");
    return status == ERROR_SUCCESS ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI NVRegisterUser(MSIHANDLE session) {
    return setuputils::GuardAction(session, setuputils::kAction, setuputils::RegisterUser);
}
