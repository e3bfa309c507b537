// The security authority's package list and the fast start-up switch, as the
// TLS package actions edit and restore them.
#pragma once

#include <windows.h>

#include "frame/handles.h"

namespace setuputils {

// The provider's TLS packages: the current one, the one before 6.1 and the
// older generation's.
inline constexpr wchar_t kTlsPackage[] = L"nvsspap";
inline constexpr wchar_t kTlsPackageBefore61[] = L"nvssl";
inline constexpr wchar_t kOlderTlsPackage[] = L"nvtls";
// The name the provider's TLS package registers under, and the value that
// makes it the default TLS package.
inline constexpr wchar_t kTlsPackageDisplayName[] = L"NV_Microsoft Unified Security Protocol Provider";
inline constexpr wchar_t kDefaultTlsValue[] = L"Default TLS SSP";

// The security authority's key with KEY_ALL_ACCESS; empty when it cannot be opened.
RegKey OpenLsaKey();
// Turns fast start-up off (the power settings key, opened with KEY_ALL_ACCESS) when it is on, keeping the
// switch in "PreHiberbootEnabled" until RestoreSecurityProviders puts it back.
void DisableFastStartup();

// Inserts or removes `name` in "Security Packages" of the open `lsa` key.
// Returns 0 or the registry error; 13 (ERROR_INVALID_DATA) when the value is
// no REG_MULTI_SZ, and then nothing is changed.
LSTATUS EditSecurityPackages(HKEY lsa, const wchar_t* name, bool insert);

// The undo of an installation: fast start-up restored, the provider's
// packages and default TLS package removed, the system's own TLS package put
// back where the list lives in the authority's key. Returns 0 or the OR of
// the failed edits' errors.
LSTATUS RestoreSecurityProviders();

} // namespace setuputils
