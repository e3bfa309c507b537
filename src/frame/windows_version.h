// The version of the running system, as the kernel reports it.
#pragma once

#include <windows.h>

namespace setuputils {

struct NtVersion {
    DWORD major = 0;
    DWORD minor = 0;
    DWORD build = 0; // without the 0xF0000000 release flag
};

// Read with RtlGetNtVersionNumbers, which no compatibility shim alters.
NtVersion GetNtVersion();

// NT 6.1 or later.
bool IsWindows7OrLater();
bool IsWindows10OrLater();

} // namespace setuputils
