// The registry library: keys named by abbreviated paths (see path_map.h),
// opened with the library's access flags, values read and written, keys
// enumerated and subtrees deleted; and the two tree operations of the
// relocation actions. Every status is in the library's vocabulary
// (registry_status.h) unless a function says otherwise.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <windows.h>

#include "frame/handles.h"
#include "registry/access_flags.h"
#include "registry/path_map.h"
#include "registry/registry_status.h"

namespace setuputils {

// Capacity of value and subkey names in records and enumerations.
inline constexpr std::size_t kRegistryNameChars = 260;

// A value (or, from a subkey enumeration, a subkey name with no data).
struct RegistryValue {
    std::vector<std::uint8_t> data;
    std::wstring name;
    DWORD type = REG_NONE;
};

struct MappedKey {
    RegKey key;
    RegistryFlags flags = 0; // the flags it was opened with
};

// The string form of the calling thread's user SID, or "Default" when the
// system cannot tell (no token, or no such call).
RegistryStatus CurrentUserSidText(std::wstring& name);

// Resolves `path` for the calling thread's user.
RegistryStatus ResolveMappedPath(std::wstring_view path, MappedKeyPath& resolved);

// Opens (with kRegCreate, creates) the key at the abbreviated `path`.
RegistryStatus OpenMappedKey(std::wstring_view path, RegistryFlags flags, MappedKey& opened);

// "abbreviated key path\value name" of at most 260 characters.
RegistryStatus GetMappedValue(std::wstring_view valuePath, RegistryValue& value);
RegistryStatus SetMappedBinaryValue(std::wstring_view valuePath, std::span<const std::uint8_t> data);
RegistryStatus SetMappedStringValue(std::wstring_view valuePath, std::wstring_view text);

// Walks the values, or the subkeys, of a key; Next reports 2 at the end.
class MappedKeyEnumeration {
public:
    RegistryStatus Open(std::wstring_view path, bool subkeys);
    RegistryStatus Next(RegistryValue& entry);
    static constexpr std::size_t nameCapacity() { return kRegistryNameChars; }

private:
    MappedKey key_;
    DWORD index_ = 0;
    bool subkeys_ = false;
};

// The subkey names of the key at `path` in enumeration order, up to the first
// that cannot be read; none when the key does not open.
std::vector<std::wstring> MappedSubkeyNames(std::wstring_view path);

// The key path `name` below `key`.
inline std::wstring Below(std::wstring_view key, std::wstring_view name) {
    return std::wstring(key).append(L"\\").append(name);
}

// Deletes the key at `path` with everything below it, depth first. Keys are
// deleted as keys (a link key goes, its target stays).
RegistryStatus DeleteMappedTree(std::wstring_view path);

// Copies the values and subkeys of the key at `source`, all the way down, to
// the key at `target`, which is created when missing; what `target` holds
// already stays unless a copied value has its name.
RegistryStatus CopyMappedTree(std::wstring_view target, std::wstring_view source);

// Moves the subkeys of `source` below `target` and copies its values there;
// the source's own values stay. Stops at the first failure.
RegistryStatus MoveKeyTree(HKEY target, HKEY source);

// Deletes the link key at `path` under HKEY_LOCAL_MACHINE: its link value,
// then the key itself when that worked or `force` is set. 0 when the key does
// not open; otherwise the key deletion's status.
RegistryStatus DeleteRegistryLink(const std::wstring& path, bool force);

} // namespace setuputils
