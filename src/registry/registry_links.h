// Registry symbolic links: keys created as links, whose "SymbolicLinkValue"
// (REG_LINK, UTF-16 without a terminator) names the key they stand for.
#pragma once

#include <string>

#include <windows.h>

#include "frame/handles.h"

namespace setuputils {

inline constexpr wchar_t kSymbolicLinkValue[] = L"SymbolicLinkValue";

// Opens the key at `path` under HKEY_LOCAL_MACHINE itself (not what it links
// to), creating it as a link key when it cannot be opened.
LSTATUS OpenOrCreateLinkKey(const std::wstring& path, RegKey& link);

// Writes `target` ("\Registry\Machine\...") as the link's value.
LSTATUS WriteLinkTarget(HKEY link, const std::wstring& target);

// True when the key holds a REG_LINK "SymbolicLinkValue", i.e. is a link.
bool IsLinkKey(HKEY key);

} // namespace setuputils
