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

bool ReadDwordValue(HKEY key, const wchar_t* name, DWORD& value) {
    DWORD size = sizeof(value);
    DWORD type = REG_NONE;
    return RegQueryValueExW(key, name, nullptr, &type, reinterpret_cast<BYTE*>(&value), &size) ==
               ERROR_SUCCESS &&
           type == REG_DWORD && size == sizeof(value);
}

LSTATUS WriteDwordValue(HKEY key, const wchar_t* name, DWORD value) {
    return RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof(value));
}

LSTATUS EnumerateName(HKEY key, KeyEntries entries, DWORD index, std::wstring& name) {
    // The longest subkey name the registry allows, and its terminator; only a
    // longer value name makes the key tell its longest name.
    constexpr DWORD kNameChars = 255 + 1;
    const bool subkey = entries == KeyEntries::Subkeys;
    auto enumerate = [&](DWORD capacity) {
        name.assign(capacity, L'\0');
        DWORD length = capacity;
        const LSTATUS status =
            subkey ? RegEnumKeyExW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr)
                   : RegEnumValueW(key, index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        name.resize(status == ERROR_SUCCESS ? length : 0);
        return status;
    };
    LSTATUS status = enumerate(kNameChars);
    if (status != ERROR_MORE_DATA) {
        return status;
    }
    DWORD longestSubkey = 0;
    DWORD longestValue = 0;
    status = RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, &longestSubkey, nullptr, nullptr,
                              &longestValue, nullptr, nullptr, nullptr);
    if (status == ERROR_SUCCESS) {
        status = enumerate((subkey ? longestSubkey : longestValue) + 1);
    }
    return status == ERROR_MORE_DATA ? ERROR_INVALID_DATA : status;
}

std::vector<std::wstring> SubkeyNames(HKEY key) {
    std::vector<std::wstring> names;
    WalkKey(key, KeyEntries::Subkeys, [&](std::wstring& name) {
        names.push_back(std::move(name));
        return true;
    });
    return names;
}

} // namespace setuputils
