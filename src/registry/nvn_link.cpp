// NvnLink (deferred; CustomActionData: a subkey below "Software\Norvane\"):
// makes the native key a link to its counterpart under the 32-bit node, so
// that 64-bit and 32-bit code share one set of settings.
// NvnUnlink (deferred): its removal counterpart leaves the link in place.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "registry/registry_links.h"

namespace setuputils {
namespace {

constexpr wchar_t kProviderSoftwareKey[] = L"Software\\Norvane\\";
constexpr wchar_t kLinkTargetPrefix[] = L"\\Registry\\Machine\\Software\\WOW6432Node\\Norvane\\";

enum class KeyKind { Absent, Link, Plain };

// What stands at `path` under HKEY_LOCAL_MACHINE itself (a link not followed).
KeyKind KindOfKey(const std::wstring& path) {
    RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), REG_OPTION_OPEN_LINK, KEY_QUERY_VALUE, key.put()) !=
        ERROR_SUCCESS) {
        return KeyKind::Absent;
    }
    return IsLinkKey(key.get()) ? KeyKind::Link : KeyKind::Plain;
}

void LinkToThirtyTwoBitNode(MSIHANDLE session) {
    std::wstring subkey;
    // No name would make the provider's top key itself the link.
    if (GetPropertyString(session, L"CustomActionData", subkey) != ERROR_SUCCESS || subkey.empty()) {
        return;
    }
    RegKey provider;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kProviderSoftwareKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        provider.put(), nullptr) != ERROR_SUCCESS) {
        return;
    }
    // A plain key without subkeys makes room for the link; one with subkeys
    // survives and stays the key it is. A link made before stays: deleting it
    // by name would delete the shared settings it leads to.
    const std::wstring path = kProviderSoftwareKey + subkey;
    if (KindOfKey(path) == KeyKind::Plain) {
        RegDeleteKeyW(provider.get(), subkey.c_str());
    }
    RegKey link;
    if (KindOfKey(path) == KeyKind::Plain || OpenOrCreateLinkKey(path, link) != ERROR_SUCCESS) {
        return;
    }
    if (WriteLinkTarget(link.get(), kLinkTargetPrefix + subkey) == ERROR_SUCCESS) {
        ReportInfo(session, L"SymbolicLink created");
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI NvnLink(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"NvnLink", setuputils::LinkToThirtyTwoBitNode);
}

extern "C" UINT WINAPI NvnUnlink(MSIHANDLE session) {
    // The link stays on removal: the 32-bit node it leads to outlives the product.
    return setuputils::RunActionThatNeverFails(session, L"NvnUnlink", [&] {
        std::wstring subkey;
        setuputils::GetPropertyString(session, L"CustomActionData", subkey);
    });
}
