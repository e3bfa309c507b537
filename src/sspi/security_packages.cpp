#include "sspi/security_packages.h"

#include <string>
#include <vector>

#include "frame/registry_values.h"
#include "sspi/package_list.h"

namespace setuputils {
namespace {

constexpr wchar_t kLsaKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Lsa";
constexpr wchar_t kLsaConfigKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Lsa\\OSConfig";
constexpr wchar_t kPowerKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
constexpr wchar_t kSecurityPackagesValue[] = L"Security Packages";
constexpr wchar_t kFastStartupValue[] = L"HiberbootEnabled";
constexpr wchar_t kSavedFastStartupValue[] = L"PreHiberbootEnabled";
constexpr wchar_t kSystemTlsPackage[] = L"Schannel";
constexpr const wchar_t* kProviderTlsPackages[] = {kTlsPackageBefore61, kTlsPackage};

RegKey OpenMachineKey(const wchar_t* path, REGSAM access) {
    RegKey key;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, access, key.put());
    return key;
}

bool SameNameIgnoringCase(const std::wstring& entry, const std::wstring& name) {
    return lstrcmpiW(entry.c_str(), name.c_str()) == 0;
}

// The value's data as characters, read into a buffer of its size plus one.
LSTATUS ReadMultiString(HKEY key, const wchar_t* name, DWORD size, std::wstring& data) {
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 1, L'\0');
    DWORD type = REG_NONE;
    const LSTATUS status =
        RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (status == ERROR_SUCCESS) {
        data.assign(buffer.data(), size / sizeof(wchar_t));
    }
    return status;
}

LSTATUS ReadPackageList(HKEY lsa, PackageList& entries) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    std::wstring data;
    if (RegQueryValueExW(lsa, kSecurityPackagesValue, nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
        if (type != REG_MULTI_SZ) {
            return ERROR_INVALID_DATA;
        }
        if (const LSTATUS status = ReadMultiString(lsa, kSecurityPackagesValue, size, data);
            status != ERROR_SUCCESS) {
            return status;
        }
    }
    entries = SplitPackageList(data);
    return ERROR_SUCCESS;
}

RegKey OpenPowerKey() {
    return OpenMachineKey(kPowerKey, KEY_ALL_ACCESS);
}

// Puts back the fast start-up switch saved when the package turned it off.
void RestoreFastStartup() {
    RegKey power = OpenPowerKey();
    DWORD saved = 0;
    if (!power || !ReadDwordValue(power.get(), kSavedFastStartupValue, saved)) {
        return;
    }
    WriteDwordValue(power.get(), kFastStartupValue, saved);
    RegDeleteValueW(power.get(), kSavedFastStartupValue);
    RegFlushKey(power.get());
}

// Deletes "Default TLS SSP" only when it names the provider's package.
LSTATUS ClearOwnDefaultTlsPackage(HKEY lsa) {
    std::wstring current;
    if (!ReadStringValue(lsa, kDefaultTlsValue, current) || current != kTlsPackageDisplayName) {
        return ERROR_SUCCESS;
    }
    return RegDeleteValueW(lsa, kDefaultTlsValue);
}

// Systems that keep the package list in the authority's configuration key
// manage the system's TLS package there.
bool ListLivesInLsaKey() {
    return !OpenMachineKey(kLsaConfigKey, KEY_QUERY_VALUE);
}

} // namespace

void DisableFastStartup() {
    RegKey power = OpenPowerKey();
    DWORD enabled = 0;
    if (!power || !ReadDwordValue(power.get(), kFastStartupValue, enabled) || enabled == 0) {
        return;
    }
    if (WriteDwordValue(power.get(), kSavedFastStartupValue, enabled) == ERROR_SUCCESS) {
        WriteDwordValue(power.get(), kFastStartupValue, 0);
        RegFlushKey(power.get());
    }
}

RegKey OpenLsaKey() {
    return OpenMachineKey(kLsaKey, KEY_ALL_ACCESS);
}

LSTATUS EditSecurityPackages(HKEY lsa, const wchar_t* name, bool insert) {
    PackageList entries;
    if (const LSTATUS status = ReadPackageList(lsa, entries); status != ERROR_SUCCESS) {
        return status;
    }
    const std::wstring data = JoinPackageList(EditPackageList(entries, name, insert, SameNameIgnoringCase));
    return RegSetValueExW(lsa, kSecurityPackagesValue, 0, REG_MULTI_SZ,
                          reinterpret_cast<const BYTE*>(data.data()),
                          static_cast<DWORD>(data.size() * sizeof(wchar_t)));
}

LSTATUS RestoreSecurityProviders() {
    RestoreFastStartup();
    RegKey lsa = OpenLsaKey();
    if (!lsa) {
        return ERROR_SUCCESS;
    }
    LSTATUS failed = ERROR_SUCCESS;
    for (const wchar_t* package : kProviderTlsPackages) {
        failed |= EditSecurityPackages(lsa.get(), package, false);
    }
    failed |= ClearOwnDefaultTlsPackage(lsa.get());
    if (ListLivesInLsaKey()) {
        failed |= EditSecurityPackages(lsa.get(), kSystemTlsPackage, true);
    }
    return failed;
}

} // namespace setuputils
