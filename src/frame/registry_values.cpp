#include "frame/registry_values.h"

namespace setuputils {

bool ReadStringValue(HKEY key, const wchar_t* name, std::wstring& value) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ)) {
        return false;
    }
    std::wstring buffer(size / sizeof(wchar_t) + 1, L'\0');
    size = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    if (RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size) !=
            ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ)) {
        return false;
    }
    buffer.resize(wcsnlen(buffer.c_str(), buffer.size()));
    value = std::move(buffer);
    return true;
}

std::vector<std::wstring> SubkeyNames(HKEY key) {
    // The longest name a registry key can have, and its terminator.
    constexpr DWORD kNameChars = 255 + 1;
    std::vector<std::wstring> names;
    for (DWORD index = 0;; ++index) {
        wchar_t name[kNameChars];
        DWORD chars = kNameChars;
        if (RegEnumKeyExW(key, index, name, &chars, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) {
            return names;
        }
        names.emplace_back(name, chars);
    }
}

} // namespace setuputils
