#include "provider/certificate_store.h"

namespace setuputils {

CertStore OpenSystemStore(const wchar_t* name, DWORD flags) {
    return CertStore(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, flags, name));
}

void ForEachCertificate(HCERTSTORE store, const std::function<void(PCCERT_CONTEXT)>& visit) {
    PCCERT_CONTEXT certificate = nullptr;
    // Each search frees the certificate it starts from; the last one returns none.
    while ((certificate = CertFindCertificateInStore(store, kCertificateEncoding, 0, CERT_FIND_ANY, nullptr,
                                                     certificate)) != nullptr) {
        try {
            visit(certificate);
        } catch (...) {
            CertFreeCertificateContext(certificate);
            throw;
        }
    }
}

std::optional<DWORD> CertificatePropertySize(PCCERT_CONTEXT certificate, DWORD property) {
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(certificate, property, nullptr, &size)) {
        return std::nullopt;
    }
    return size;
}

std::vector<BYTE> ReadCertificateProperty(PCCERT_CONTEXT certificate, DWORD property) {
    const std::optional<DWORD> size = CertificatePropertySize(certificate, property);
    if (!size || *size == 0) {
        return {};
    }
    std::vector<BYTE> data(*size);
    DWORD read = *size;
    if (!CertGetCertificateContextProperty(certificate, property, data.data(), &read)) {
        return {};
    }
    data.resize(read);
    return data;
}

} // namespace setuputils
