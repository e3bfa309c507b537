// FixPrivateKeyLinks (deferred): certificates in the current user's personal
// store whose keys were made by the provider under its earlier provider types
// (2 and 71) are linked to the current GOST provider type instead, with no
// provider name, so that they find their keys again. Links that name another
// vendor's provider stay as they are. Never fails.
#include <utility>
#include <vector>

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

constexpr wchar_t kPersonalStore[] = L"MY";
constexpr DWORD kOpenFlags =
    CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING_FLAG | CERT_STORE_MAXIMUM_ALLOWED_FLAG;

// A certificate and its key-provider property, as read from the store.
struct KeyLink {
    CertContext certificate;
    std::vector<BYTE> data;

    CRYPT_KEY_PROV_INFO& info() { return *reinterpret_cast<CRYPT_KEY_PROV_INFO*>(data.data()); }
};

bool IsOutdated(KeyLink& link) {
    const wchar_t* name = link.info().pwszProvName;
    return IsOutdatedVendorKeyLink(link.info().dwProvType, name != nullptr ? name : L"");
}

// Clears the provider name, moves the link to the current type, and stores
// the certificate again once the property took the change.
void MoveToCurrentType(HCERTSTORE store, KeyLink& link) {
    CRYPT_KEY_PROV_INFO& info = link.info();
    if (info.pwszProvName != nullptr) {
        info.pwszProvName[0] = L'\0';
    }
    info.dwProvType = kGostProviderType;
    if (CertSetCertificateContextProperty(link.certificate.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &info)) {
        CertAddCertificateContextToStore(store, link.certificate.get(), CERT_STORE_ADD_REPLACE_EXISTING,
                                         nullptr);
    }
}

void FixLinks() {
    CertStore store = OpenSystemStore(kPersonalStore, kOpenFlags);
    if (!store) {
        return;
    }
    // Certificates are picked during the walk and put back after it: one put
    // back into the store while it is being walked could be met again.
    std::vector<KeyLink> outdated;
    ForEachCertificate(store.get(), [&](PCCERT_CONTEXT certificate) {
        KeyLink link{CertContext(), ReadCertificateProperty(certificate, CERT_KEY_PROV_INFO_PROP_ID)};
        if (link.data.size() >= sizeof(CRYPT_KEY_PROV_INFO) && IsOutdated(link)) {
            link.certificate.reset(CertDuplicateCertificateContext(certificate));
            outdated.push_back(std::move(link));
        }
    });
    for (KeyLink& link : outdated) {
        MoveToCurrentType(store.get(), link);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI FixPrivateKeyLinks(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"FixPrivateKeyLinks", setuputils::FixLinks);
}
