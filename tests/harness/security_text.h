// Access lists as SDDL text, for comparing them in tests.
#pragma once

#include <string>

#include <windows.h>

namespace harness {

// "D:(...)..." of `acl`, without the descriptor's flags (Wine 8.0 drops
// SE_DACL_PROTECTED from SetSecurityInfo on keys); "<unreadable>" when null.
std::wstring AclText(PACL acl);
// The access list of the key at `path` below `root`.
std::wstring KeyDaclText(HKEY root, const std::wstring& path);

} // namespace harness
