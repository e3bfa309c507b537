// The registry library's own access flags and the registry rights they stand for.
#pragma once

#include <cstdint>

namespace setuputils {

using RegistryFlags = std::uint32_t;

inline constexpr RegistryFlags kRegQueryValue = 0x1;
inline constexpr RegistryFlags kRegSetValue = 0x2;
inline constexpr RegistryFlags kRegCreateSubKey = 0x4;
inline constexpr RegistryFlags kRegDelete = 0x8;
inline constexpr RegistryFlags kRegReadControl = 0x10;
inline constexpr RegistryFlags kRegTakeOwnership = 0x20; // owner and access list, and enumeration
inline constexpr RegistryFlags kRegEnumerate = 0x40;
inline constexpr RegistryFlags kRegNotify = 0x80;
inline constexpr RegistryFlags kReg64BitView = 0x100;
inline constexpr RegistryFlags kRegSystemSecurity = 0x1000000;
inline constexpr RegistryFlags kRegCreate = 0x1000;           // create when missing
inline constexpr RegistryFlags kRegProtectedCreate = 0x10000; // with kRegCreate: capability-SID access list

// The flag sets the callers use.
inline constexpr RegistryFlags kRegReadValues = kRegQueryValue;
inline constexpr RegistryFlags kRegEnumerateSubkeys = kRegEnumerate;
inline constexpr RegistryFlags kRegWriteValues = kRegCreate | kRegSetValue;
inline constexpr RegistryFlags kRegDeleteTree = kRegDelete | kRegEnumerate;
inline constexpr RegistryFlags kRegCreateUserRoot = kRegProtectedCreate | kRegCreate | kRegTakeOwnership;

// The registry access mask (REGSAM) requested for `flags`. kRegCreate alone
// asks for KEY_SET_VALUE.
std::uint32_t TranslateRegistryFlags(RegistryFlags flags);

} // namespace setuputils
