// The certificate stores the provider's repairs work on: system stores opened
// by name, walked certificate by certificate, and certificate properties read
// whole.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include <windows.h>
#include <wincrypt.h>

#include "frame/handles.h"

namespace setuputils {

// The provider's own trusted system store, registered for the local machine.
inline constexpr wchar_t kTrustedStoreName[] = L"NorvaneTrustedStore";

// Certificates are looked for in both encodings a system store holds (0x10001).
inline constexpr DWORD kCertificateEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// The system store `name`; `flags` hold its location and the open flags.
// Empty when it does not open.
CertStore OpenSystemStore(const wchar_t* name, DWORD flags);

// Calls `visit` for every certificate of `store`, each search going on from
// the certificate the previous one found.
void ForEachCertificate(HCERTSTORE store, const std::function<void(PCCERT_CONTEXT)>& visit);

// The size of the property `property` of `certificate`; nothing when it has none.
std::optional<DWORD> CertificatePropertySize(PCCERT_CONTEXT certificate, DWORD property);

// The data of the property, read into a buffer of the size asked for first;
// empty when the certificate has none.
std::vector<BYTE> ReadCertificateProperty(PCCERT_CONTEXT certificate, DWORD property);

} // namespace setuputils
