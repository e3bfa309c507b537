#include "registry/registry_links.h"

namespace setuputils {
namespace {

// Room for the target of any link this library writes.
constexpr DWORD kLinkValueBytes = 520;

} // namespace

LSTATUS OpenOrCreateLinkKey(const std::wstring& path, RegKey& link) {
    LSTATUS status =
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), REG_OPTION_OPEN_LINK, KEY_ALL_ACCESS, link.put());
    if (status != ERROR_SUCCESS) {
        status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_CREATE_LINK,
                                 KEY_ALL_ACCESS | KEY_CREATE_LINK, nullptr, link.put(), nullptr);
    }
    return status;
}

LSTATUS WriteLinkTarget(HKEY link, const std::wstring& target) {
    return RegSetValueExW(link, kSymbolicLinkValue, 0, REG_LINK, reinterpret_cast<const BYTE*>(target.data()),
                          static_cast<DWORD>(target.size() * sizeof(wchar_t)));
}

bool IsLinkKey(HKEY key) {
    BYTE value[kLinkValueBytes];
    DWORD size = sizeof(value);
    DWORD type = REG_NONE;
    return RegQueryValueExW(key, kSymbolicLinkValue, nullptr, &type, value, &size) == ERROR_SUCCESS &&
           type == REG_LINK;
}

} // namespace setuputils
