// SslRegister: loads the provider's TLS package into the running security
// authority, so that it works before the next restart. Only done when the
// package is not loaded yet and the system's own TLS package offers ciphers
// weaker than 256 bits. Never fails.
#define SECURITY_WIN32
#include <windows.h>
#include <msiquery.h>
#include <schannel.h>
#include <security.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/windows_version.h"
#include "sspi/security_packages.h"

namespace setuputils {
namespace {

constexpr wchar_t kSystemTlsPackageDisplayName[] = L"Microsoft Unified Security Protocol Provider";
constexpr DWORD kStrongestCipher = 256;

bool AcquireOutboundCredentials(const wchar_t* package, CredHandle& credentials) {
    TimeStamp expiry{};
    return AcquireCredentialsHandleW(nullptr, const_cast<wchar_t*>(package), SECPKG_CRED_OUTBOUND, nullptr,
                                     nullptr, nullptr, nullptr, &credentials, &expiry) == SEC_E_OK;
}

bool OffersWeakCiphers(CredHandle& credentials) {
    SecPkgCred_CipherStrengths strengths{};
    return QueryCredentialsAttributesW(&credentials, SECPKG_ATTR_CIPHER_STRENGTHS, &strengths) == SEC_E_OK &&
           strengths.dwMinimumCipherStrength < kStrongestCipher;
}

void AddToRunningAuthority(const wchar_t* package) {
    SECURITY_PACKAGE_OPTIONS options{};
    options.Size = sizeof(options);
    options.Type = SECPKG_OPTIONS_TYPE_LSA;
    AddSecurityPackageW(const_cast<wchar_t*>(package), &options);
}

void LoadTlsPackage() {
    CredHandle credentials{};
    // A handle the provider's package gives means it is loaded; it stays open.
    if (AcquireOutboundCredentials(kTlsPackageDisplayName, credentials) ||
        !AcquireOutboundCredentials(kSystemTlsPackageDisplayName, credentials)) {
        return;
    }
    if (OffersWeakCiphers(credentials)) {
        AddToRunningAuthority(IsWindows7OrLater() ? kTlsPackage : kTlsPackageBefore61);
    }
    FreeCredentialsHandle(&credentials);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI SslRegister(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"SslRegister", setuputils::LoadTlsPackage);
}
