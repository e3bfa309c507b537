// A user's random seed in the provider's settings tree, and the legacy
// ADVAPI32 patch the seeding needs on old systems.
#pragma once

#include <string>

#include <windows.h>

namespace setuputils {

// Reads "RootRandomSeed" from `key`, the user's "Random" key: its size, then
// its data. 0, the registry error of the query, or 13 (ERROR_INVALID_DATA)
// when the value is not binary. Nobody looks at the seed's bytes.
LSTATUS ReadRootRandomSeed(HKEY key);

// Whether the user with this SID still needs seeding, judged by the user's
// "Random" key in the machine-side view of the settings tree (reached through
// the 32-bit node by its path); a key that does not open needs it.
bool UserNeedsSeeding(const std::wstring& sid);

// Whether the current user has an initialised seed, through the per-user
// settings tree.
bool IsCurrentUserSeeded();

// Loads the image named by "Image Dll" and then the patch module named by
// "Patch Dll64" (Session Manager\NvnPatches\ADVAPI32) and calls the patch's
// "NvnDllPatch". The patch module stays loaded only when that call succeeds,
// and nothing is done when it is loaded already. Returns the patch module
// this call left loaded, or null.
HMODULE ApplyLegacyAdvapiPatch();

// The same, attempted once per process at most, even when it does nothing.
void ApplyLegacyAdvapiPatchOnce();

} // namespace setuputils
