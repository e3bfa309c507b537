// SslRegInstall: after undoing what an earlier installation left, puts the
// provider's TLS package into the security authority's list, makes it the
// default TLS package from Windows 10 on, and takes two competing GOST TLS
// packages out of the list. Fails only when an edit fails.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/windows_version.h"
#include "sspi/security_packages.h"

namespace setuputils {
namespace {

constexpr const wchar_t* kCompetingTlsPackages[] = {L"itcssp", L"sspp"};

LSTATUS SetDefaultTlsPackage(HKEY lsa) {
    return RegSetValueExW(lsa, kDefaultTlsValue, 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(kTlsPackageDisplayName),
                          sizeof(kTlsPackageDisplayName));
}

UINT RegisterTlsPackage() {
    RestoreSecurityProviders();
    RegKey lsa = OpenLsaKey();
    if (!lsa) {
        return ERROR_SUCCESS;
    }
    LSTATUS failed = ERROR_SUCCESS;
    if (IsWindows7OrLater()) {
        failed |= EditSecurityPackages(lsa.get(), kTlsPackage, true);
    }
    if (IsWindows10OrLater()) {
        failed |= SetDefaultTlsPackage(lsa.get());
    }
    for (const wchar_t* package : kCompetingTlsPackages) {
        failed |= EditSecurityPackages(lsa.get(), package, false);
    }
    return failed == ERROR_SUCCESS ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI SslRegInstall(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"SslRegInstall", setuputils::RegisterTlsPackage);
}
