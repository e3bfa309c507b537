// The tree operations of the registry library: subtree deletion, copy and
// move, and the deletion of link keys.
#include <string>

#include "frame/registry_values.h"
#include "registry/registry_library.h"

namespace setuputils {
namespace {

constexpr wchar_t kLinkValueName[] = L"SymbolicLinkValue";

using ZwDeleteKeyFn = LONG(NTAPI*)(HANDLE);

// Deletes `key` as a key, never following it when it is a link.
RegistryStatus DeleteKeyItself(HKEY key) {
    HMODULE ntdll = LoadLibraryW(L"ntdll.dll");
    if (ntdll == nullptr) {
        return kRegistryNoNtdll;
    }
    auto deleteKey =
        reinterpret_cast<ZwDeleteKeyFn>(reinterpret_cast<void*>(GetProcAddress(ntdll, "ZwDeleteKey")));
    const RegistryStatus status = deleteKey != nullptr ? MapNtStatus(deleteKey(key)) : kRegistryNoNtdll;
    FreeLibrary(ntdll);
    return status;
}

// Deletes the subtree below `key` and then `key`, depth first.
RegistryStatus DeleteTree(HKEY key, RegistryFlags flags) {
    const REGSAM access =
        DELETE | KEY_ENUMERATE_SUB_KEYS | ((flags & kReg64BitView) != 0 ? KEY_WOW64_64KEY : 0);
    for (;;) {
        std::wstring name;
        LSTATUS status = EnumerateName(key, KeyEntries::Subkeys, 0, name);
        if (status == ERROR_NO_MORE_ITEMS) {
            return DeleteKeyItself(key);
        }
        RegKey subkey;
        if (status == ERROR_SUCCESS) {
            status = RegOpenKeyExW(key, name.c_str(), REG_OPTION_OPEN_LINK, access, subkey.put());
        }
        if (status != ERROR_SUCCESS) {
            return MapRegistryStatus(status);
        }
        if (const RegistryStatus deleted = DeleteTree(subkey.get(), flags); deleted != kRegistryOk) {
            return deleted;
        }
    }
}

LSTATUS CopyValues(HKEY target, HKEY source, DWORD count, DWORD longestName, DWORD longestData) {
    std::vector<wchar_t> name(longestName + 1);
    std::vector<BYTE> data(longestData + 1);
    for (DWORD index = 0; index < count; ++index) {
        DWORD nameLength = static_cast<DWORD>(name.size());
        DWORD dataSize = static_cast<DWORD>(data.size());
        DWORD type = REG_NONE;
        LSTATUS status =
            RegEnumValueW(source, index, name.data(), &nameLength, nullptr, &type, data.data(), &dataSize);
        if (status == ERROR_SUCCESS) {
            status = RegSetValueExW(target, name.data(), 0, type, data.data(), dataSize);
        }
        if (status != ERROR_SUCCESS) {
            return status;
        }
    }
    return ERROR_SUCCESS;
}

// Copies the values of `source` to `target` and tells how many subkeys it has.
LSTATUS CopyValuesCountingSubkeys(HKEY target, HKEY source, DWORD& subkeys) {
    DWORD values = 0;
    DWORD longestName = 0;
    DWORD longestData = 0;
    const LSTATUS status = RegQueryInfoKeyW(source, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr,
                                            &values, &longestName, &longestData, nullptr, nullptr);
    return status == ERROR_SUCCESS ? CopyValues(target, source, values, longestName, longestData) : status;
}

// Copies the values of `source` to `target` and then its subtrees, subkey by
// subkey, opened and created in `view` (0 or KEY_WOW64_64KEY). A move takes
// the subkeys from the last one down and deletes each from `source` once it is
// moved; the source's own values stay. The first failure stops the transfer.
LSTATUS TransferTree(HKEY target, HKEY source, REGSAM view, bool move) {
    DWORD subkeys = 0;
    LSTATUS status = CopyValuesCountingSubkeys(target, source, subkeys);
    for (DWORD step = 0; status == ERROR_SUCCESS && step < subkeys; ++step) {
        std::wstring name;
        RegKey from;
        RegKey to;
        status = EnumerateName(source, KeyEntries::Subkeys, move ? subkeys - 1 - step : step, name);
        if (status == ERROR_SUCCESS) {
            status = RegOpenKeyExW(source, name.c_str(), 0, KEY_READ | view, from.put());
        }
        if (status == ERROR_SUCCESS) {
            status = RegCreateKeyExW(target, name.c_str(), 0, nullptr, 0, KEY_WRITE | view, nullptr, to.put(),
                                     nullptr);
        }
        if (status == ERROR_SUCCESS) {
            status = TransferTree(to.get(), from.get(), view, move);
        }
        from.reset();
        if (status == ERROR_SUCCESS && move) {
            status = RegDeleteKeyW(source, name.c_str());
        }
    }
    return status;
}

} // namespace

RegistryStatus DeleteMappedTree(std::wstring_view path) {
    MappedKey key;
    if (RegistryStatus status = OpenMappedKey(path, kRegDeleteTree, key); status != kRegistryOk) {
        return status;
    }
    return DeleteTree(key.key.get(), key.flags);
}

RegistryStatus CopyMappedTree(std::wstring_view target, std::wstring_view source) {
    MappedKey from;
    if (RegistryStatus status = OpenMappedKey(source, kRegQueryValue | kRegEnumerate, from);
        status != kRegistryOk) {
        return status;
    }
    MappedKey to;
    if (RegistryStatus status = OpenMappedKey(target, kRegWriteValues | kRegCreateSubKey, to);
        status != kRegistryOk) {
        return status;
    }
    const REGSAM view = (from.flags & kReg64BitView) != 0 ? KEY_WOW64_64KEY : 0;
    return MapRegistryStatus(TransferTree(to.key.get(), from.key.get(), view, false));
}

RegistryStatus MoveKeyTree(HKEY target, HKEY source) {
    return MapRegistryStatus(TransferTree(target, source, 0, true));
}

RegistryStatus DeleteRegistryLink(const std::wstring& path, bool force) {
    RegKey link;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), REG_OPTION_OPEN_LINK, KEY_ALL_ACCESS, link.put()) !=
        ERROR_SUCCESS) {
        return kRegistryOk;
    }
    const bool unlinked = RegDeleteValueW(link.get(), kLinkValueName) == ERROR_SUCCESS;
    if (!unlinked && !force) {
        return kRegistryOk;
    }
    return DeleteKeyItself(link.get());
}

} // namespace setuputils
