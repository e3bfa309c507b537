// Access for app-container and low-integrity processes: the access list of
// the per-user settings keys, the all-application-packages entry of files,
// and the low-integrity label of the settings tree.
#pragma once

#include <string>

#include <windows.h>

#include "frame/handles.h"
#include "frame/windows_version.h"

namespace setuputils {

// File rights the all-application-packages entry grants: read, execute, synchronise.
inline constexpr DWORD kAppPackagesFileRights = 0x1200A9;
// The label given to the per-user settings tree: low integrity, inherited, no write-up.
inline constexpr wchar_t kLowIntegrityLabel[] = L"S:(ML;OICI;NW;;;LW)";
inline constexpr wchar_t kUserSettingsObject[] = L"MACHINE\\SOFTWARE\\Norvane\\Settings\\Users";

// True from NT 6.2 (Windows 8) on, where app containers exist.
bool HasAppContainers(NtVersion version);
// True from NT 6.3 (Windows 8.1) on, where the "registryRead" capability exists.
bool HasRegistryReadCapability(NtVersion version);

// The access list of keys created in the per-user settings tree: all
// application packages (6.2+), the "registryRead" capability (6.3+, when the
// system can derive it), creator owner, local system and the current user,
// each with full access inherited by subkeys. Empty on failure; free with LocalFree.
LocalMemory BuildSettingsKeyAcl(NtVersion version);
LocalMemory BuildSettingsKeyAcl();

// `current` with an all-application-packages entry merged in (read and
// execute, inherited by files and folders); nothing when `current` is a NULL
// list, which lets everyone in already. Returns the Win32 error.
DWORD MergeAppPackagesEntry(PACL current, LocalMemory& merged);

// The security descriptor of the low-integrity label; empty on failure.
LocalMemory LowIntegrityLabelDescriptor();

// Sets the owner of the HKLM key `path` from `ownerDescriptor`, then its
// access list from `daclDescriptor`, each through a key opened for that change
// alone; the access list is set even when the owner could not be. A null
// descriptor fails its half with ERROR_INVALID_PARAMETER. Returns the first error.
LSTATUS SetKeyOwnerAndDacl(const std::wstring& path, PSECURITY_DESCRIPTOR ownerDescriptor,
                           PSECURITY_DESCRIPTOR daclDescriptor);

} // namespace setuputils
