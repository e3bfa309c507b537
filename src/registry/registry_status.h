// The status vocabulary of the registry library: the provider's codes, not
// the registry's.
#pragma once

#include <cstdint>

namespace setuputils {

using RegistryStatus = std::uint32_t;

inline constexpr RegistryStatus kRegistryOk = 0;
inline constexpr RegistryStatus kRegistryNotFound = 2;         // also the end of an enumeration
inline constexpr RegistryStatus kRegistryBufferTooSmall = 122; // user identification only
inline constexpr RegistryStatus kRegistryBadArgument = 87;     // a null argument or a path too long
inline constexpr RegistryStatus kRegistryNoMemory = 0x8009000E;
inline constexpr RegistryStatus kRegistryAccessDenied = 0x80090010;
inline constexpr RegistryStatus kRegistryFailure = 0x8009001D;
inline constexpr RegistryStatus kRegistryNoNtdll = 0x80090005;

// The two conversions every result of the system passes through: that of a
// registry call, and that of a native key call (0 or a failure).
RegistryStatus MapRegistryStatus(long result);
RegistryStatus MapNtStatus(long status);

} // namespace setuputils
