// MsiGetShortPathName (immediate): replaces the property "INSTALLDIR64" by the
// short (8.3) form of its path. A path the system cannot shorten, for instance
// one that does not exist, leaves the property as it was.
#include <string>
#include <vector>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kInstallDir[] = L"INSTALLDIR64";

UINT ShortenInstallDir(MSIHANDLE session) {
    std::wstring path;
    if (UINT status = GetPropertyString(session, kInstallDir, path); status != ERROR_SUCCESS) {
        return status;
    }
    const DWORD needed = GetShortPathNameW(path.c_str(), nullptr, 0);
    if (needed == 0) {
        return ERROR_SUCCESS;
    }
    std::vector<wchar_t> shortPath(needed);
    const DWORD written = GetShortPathNameW(path.c_str(), shortPath.data(), needed);
    if (written == 0 || written >= needed) {
        return ERROR_SUCCESS;
    }
    return SetProperty(session, kInstallDir, shortPath.data());
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI MsiGetShortPathName(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"MsiGetShortPathName", setuputils::ShortenInstallDir);
}
