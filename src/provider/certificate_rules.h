// The decisions of the certificate repairs that need no system calls: the
// size a GOST signature algorithm's cached signature hash must have, and
// which key-provider links are the provider's own and move to the current
// GOST provider type.
//
// Portable: no Windows headers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace setuputils {

// Object identifiers of the GOST signature algorithms.
inline constexpr char kGost2001SignatureOid[] = "1.2.643.2.2.3";
inline constexpr char kGost2012Signature256Oid[] = "1.2.643.7.1.1.3.2";
inline constexpr char kGost2012Signature512Oid[] = "1.2.643.7.1.1.3.3";

// The provider type certificates of the provider's keys are linked to.
inline constexpr std::uint32_t kGostProviderType = 75;
// The word every name of the provider's key providers contains.
inline constexpr wchar_t kVendorWord[] = L"Norvane";

// Bytes of the signature hash a certificate signed with `signatureOid` must
// cache: 32 for GOST 2001 and 2012-256, 64 for GOST 2012-512; nothing for any
// other algorithm, whose cached hash is never looked at.
std::optional<std::size_t> SignatureHashSize(std::string_view signatureOid);

// A link to a key of the provider's earlier types (2 and 71), by a provider
// without a name or with a name that contains the vendor's word; such a link
// is moved to kGostProviderType with its name cleared.
bool IsOutdatedVendorKeyLink(std::uint32_t providerType, std::wstring_view providerName);

} // namespace setuputils
