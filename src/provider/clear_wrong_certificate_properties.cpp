// ClearWrongUserCertificateProperties and ClearWrongMachineCertificateProperties
// (deferred): in the personal, root and intermediate stores of the current
// user or of the local machine, a GOST certificate whose cached signature hash
// has not the size its signature algorithm gives loses that hash, so that the
// system computes it again. Stores that do not exist are left out. Never fail.
#include <cstddef>
#include <optional>

#include <windows.h>
#include <wincrypt.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "provider/certificate_rules.h"
#include "provider/certificate_store.h"

namespace setuputils {
namespace {

// Walked in this order.
constexpr const wchar_t* kRepairedStores[] = {L"My", L"Root", L"CA"};
constexpr DWORD kOpenFlags = CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_MAXIMUM_ALLOWED_FLAG;

void DropWrongSignatureHash(PCCERT_CONTEXT certificate) {
    const char* algorithm = certificate->pCertInfo->SignatureAlgorithm.pszObjId;
    const std::optional<std::size_t> expected = SignatureHashSize(algorithm != nullptr ? algorithm : "");
    if (!expected) {
        return;
    }
    const std::optional<DWORD> cached = CertificatePropertySize(certificate, CERT_SIGNATURE_HASH_PROP_ID);
    if (cached && *cached != *expected) {
        CertSetCertificateContextProperty(certificate, CERT_SIGNATURE_HASH_PROP_ID, 0, nullptr);
    }
}

// `location` is CERT_SYSTEM_STORE_CURRENT_USER or CERT_SYSTEM_STORE_LOCAL_MACHINE.
void ClearWrongCertificateProperties(DWORD location) {
    for (const wchar_t* name : kRepairedStores) {
        if (CertStore store = OpenSystemStore(name, location | kOpenFlags)) {
            ForEachCertificate(store.get(), DropWrongSignatureHash);
        }
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI ClearWrongUserCertificateProperties(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"ClearWrongUserCertificateProperties", [] {
        setuputils::ClearWrongCertificateProperties(CERT_SYSTEM_STORE_CURRENT_USER);
    });
}

extern "C" UINT WINAPI ClearWrongMachineCertificateProperties(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"ClearWrongMachineCertificateProperties", [] {
        setuputils::ClearWrongCertificateProperties(CERT_SYSTEM_STORE_LOCAL_MACHINE);
    });
}
