// RemoveAppPaths (immediate): removes the provider's application-path entries
// that point at files of this product or of its earlier editions. For every
// component installed locally for one of those products, the first AppPath
// subkey whose default value is exactly the component's path is deleted.
#include <string>

#include <windows.h>
#include <msi.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/product_codes.h"
#include "frame/registry_values.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kAppPathKey[] = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\AppPath";
// Component and product codes: a GUID in braces and the terminator.
constexpr DWORD kGuidLength = 39;
constexpr DWORD kPathLength = MAX_PATH;
constexpr DWORD kDefaultValueBytes = 520;

bool IsOwnOrEarlierEdition(const std::wstring& ownProductCode, const wchar_t* client) {
    if (_wcsicmp(client, ownProductCode.c_str()) == 0) {
        return true;
    }
    for (const wchar_t* productCode : kEarlierEditionProductCodes) {
        if (_wcsicmp(client, productCode) == 0) {
            return true;
        }
    }
    return false;
}

// The subkey's default value equals `path`, case included.
bool PointsAt(HKEY appPaths, const wchar_t* subkey, const wchar_t* path) {
    wchar_t value[kDefaultValueBytes / sizeof(wchar_t) + 1] = L"";
    DWORD size = kDefaultValueBytes;
    return RegGetValueW(appPaths, subkey, nullptr, RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND,
                        nullptr, value, &size) == ERROR_SUCCESS &&
           wcscmp(value, path) == 0;
}

void DeleteFirstAppPathTo(const wchar_t* path) {
    RegKey appPaths;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAppPathKey, 0, KEY_ALL_ACCESS, appPaths.put()) != ERROR_SUCCESS) {
        return;
    }
    for (const std::wstring& subkey : SubkeyNames(appPaths.get())) {
        if (PointsAt(appPaths.get(), subkey.c_str(), path)) {
            RegDeleteKeyW(appPaths.get(), subkey.c_str());
            return;
        }
    }
}

void RemoveClientAppPaths(const std::wstring& ownProductCode, const wchar_t* component) {
    wchar_t client[kGuidLength] = L"";
    for (DWORD index = 0; MsiEnumClientsW(component, index, client) == ERROR_SUCCESS; ++index) {
        if (!IsOwnOrEarlierEdition(ownProductCode, client)) {
            continue;
        }
        wchar_t path[kPathLength] = L"";
        DWORD size = kPathLength;
        if (MsiGetComponentPathW(client, component, path, &size) == INSTALLSTATE_LOCAL) {
            DeleteFirstAppPathTo(path);
        }
    }
}

void RemovePaths(MSIHANDLE session) {
    std::wstring productCode;
    GetPropertyString(session, L"ProductCode", productCode);
    wchar_t component[kGuidLength] = L"";
    for (DWORD index = 0; MsiEnumComponentsW(index, component) == ERROR_SUCCESS; ++index) {
        RemoveClientAppPaths(productCode, component);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI RemoveAppPaths(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"RemoveAppPaths", setuputils::RemovePaths);
}
