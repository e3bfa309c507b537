#include "frame/windows_version.h"

namespace setuputils {
namespace {

using RtlGetNtVersionNumbersFn = void(WINAPI*)(DWORD*, DWORD*, DWORD*);
constexpr DWORD kBuildNumberMask = 0x0FFFFFFF;

} // namespace

NtVersion GetNtVersion() {
    NtVersion version;
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    auto query = ntdll != nullptr ? reinterpret_cast<RtlGetNtVersionNumbersFn>(reinterpret_cast<void*>(
                                        GetProcAddress(ntdll, "RtlGetNtVersionNumbers")))
                                  : nullptr;
    if (query != nullptr) {
        query(&version.major, &version.minor, &version.build);
        version.build &= kBuildNumberMask;
    }
    return version;
}

bool IsWindows7OrLater() {
    const NtVersion version = GetNtVersion();
    return version.major > 6 || (version.major == 6 && version.minor >= 1);
}

bool IsWindows10OrLater() {
    return GetNtVersion().major >= 10;
}

} // namespace setuputils
