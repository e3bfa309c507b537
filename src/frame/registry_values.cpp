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

} // namespace setuputils
