#include "features/earlier_product_id.h"

#include <optional>
#include <string>

#include <msiquery.h>

#include "frame/action_guard.h"
#include "frame/product_codes.h"
#include "frame/session.h"

namespace setuputils {
namespace {

// What an earlier edition registered for its user.
struct EarlierRegistration {
    const wchar_t* productCode = nullptr;
    std::wstring productId;
    std::wstring userName;
    std::wstring company;
};

// The registered user name, or the company, of an installed product.
std::wstring ReadUserInfo(const wchar_t* productCode, bool company) {
    return ReadTextOrEmpty([&](wchar_t* text, DWORD* size) {
        const USERINFOSTATE state =
            company ? MsiGetUserInfoW(productCode, nullptr, nullptr, text, size, nullptr, nullptr)
                    : MsiGetUserInfoW(productCode, text, size, nullptr, nullptr, nullptr, nullptr);
        if (state == USERINFOSTATE_MOREDATA) {
            return static_cast<UINT>(ERROR_MORE_DATA);
        }
        return static_cast<UINT>(state == USERINFOSTATE_PRESENT ? ERROR_SUCCESS : ERROR_UNKNOWN_PRODUCT);
    });
}

std::optional<EarlierRegistration> ReadRegistration(const wchar_t* productCode) {
    EarlierRegistration registration;
    registration.productCode = productCode;
    registration.productId = GetProductInfo(productCode, INSTALLPROPERTY_PRODUCTID);
    if (registration.productId.empty()) {
        return std::nullopt;
    }
    registration.userName = ReadUserInfo(productCode, false);
    registration.company = ReadUserInfo(productCode, true);
    return registration;
}

std::optional<EarlierRegistration> FindEarlierRegistration() {
    for (const wchar_t* productCode : kEarlierEditionProductCodes) {
        if (MsiQueryProductStateW(productCode) == INSTALLSTATE_DEFAULT) {
            if (auto registration = ReadRegistration(productCode)) {
                return registration;
            }
        }
    }
    return std::nullopt;
}

// Sets `name` to `value` unless it has a value already or `value` is empty.
void SetWhereEmpty(MSIHANDLE session, const wchar_t* name, const std::wstring& value) {
    std::wstring current;
    GetPropertyString(session, name, current);
    if (current.empty() && !value.empty()) {
        SetProperty(session, name, value.c_str());
    }
}

void Carry(MSIHANDLE session, const wchar_t* action) {
    std::wstring productKey;
    GetPropertyString(session, L"PIDKEY", productKey);
    if (!productKey.empty()) {
        ReportInfoLine(session, std::wstring(action) + L": PIDKEY is set; nothing carried.");
        return;
    }
    const std::optional<EarlierRegistration> earlier = FindEarlierRegistration();
    if (!earlier) {
        ReportInfoLine(session, std::wstring(action) + L": no earlier edition with a product identifier.");
        return;
    }
    SetProperty(session, L"PIDKEY", earlier->productId.c_str());
    SetWhereEmpty(session, L"USERNAME", earlier->userName);
    SetWhereEmpty(session, L"COMPANYNAME", earlier->company);
    ReportInfoLine(session, std::wstring(action) + L": product identifier carried from " +
                                earlier->productCode + L".");
}

} // namespace

UINT CarryEarlierProductId(MSIHANDLE session, const wchar_t* action) {
    return RunActionThatNeverFails(session, action, [&] { Carry(session, action); });
}

} // namespace setuputils
