#include "drivers/inf_location.h"

#include <vector>

#include "frame/handles.h"
#include "frame/product_codes.h"

namespace setuputils {

std::wstring InfLocationKeyPath() {
    return std::wstring(kUninstallKeyPath) + kInfLocationProductCode;
}

LSTATUS SaveInfLocation(const std::wstring& componentId, const std::wstring& stagedPath) {
    RegKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str(), 0, nullptr,
                                     REG_OPTION_NON_VOLATILE, KEY_SET_VALUE, nullptr, key.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    return RegSetValueExW(key.get(), componentId.c_str(), 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(stagedPath.c_str()),
                          static_cast<DWORD>((stagedPath.size() + 1) * sizeof(wchar_t)));
}

LSTATUS ReadInfLocation(const std::wstring& componentId, std::wstring& stagedPath) {
    RegKey key;
    LSTATUS status =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str(), 0, KEY_QUERY_VALUE, key.put());
    if (status != ERROR_SUCCESS) {
        return status;
    }
    DWORD type = REG_NONE;
    DWORD size = 0;
    status = RegQueryValueExW(key.get(), componentId.c_str(), nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    if (type != REG_SZ && type != REG_EXPAND_SZ) {
        return ERROR_INVALID_DATA;
    }
    // Zero-filled and longer than the value: the text ends even if the value does not.
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 2, L'\0');
    status = RegQueryValueExW(key.get(), componentId.c_str(), nullptr, nullptr,
                              reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (status == ERROR_SUCCESS) {
        stagedPath.assign(buffer.data());
    }
    return status;
}

void DeleteInfLocation(const std::wstring& componentId, InstallLog& log) {
    RegKey key;
    LSTATUS status =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str(), 0, KEY_SET_VALUE, key.put());
    if (status != ERROR_SUCCESS) {
        SetLastError(static_cast<DWORD>(status));
        LogError(log, L"Can't get inf file location");
        return;
    }
    RegDeleteValueW(key.get(), componentId.c_str());
    LogInfo(log, L"Inf file location deleted.");
    // The record's key goes with its last value: it exists for nothing else.
    DWORD subkeys = 0;
    DWORD values = 0;
    if (RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                         nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
        subkeys == 0 && values == 0) {
        key.reset();
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str());
    }
}

} // namespace setuputils
