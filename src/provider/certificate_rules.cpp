#include "provider/certificate_rules.h"

namespace setuputils {
namespace {

constexpr std::size_t kGost256HashBytes = 32;
constexpr std::size_t kGost512HashBytes = 64;
constexpr std::uint32_t kOutdatedProviderTypes[] = {2, 71};

} // namespace

std::optional<std::size_t> SignatureHashSize(std::string_view signatureOid) {
    if (signatureOid == kGost2001SignatureOid || signatureOid == kGost2012Signature256Oid) {
        return kGost256HashBytes;
    }
    if (signatureOid == kGost2012Signature512Oid) {
        return kGost512HashBytes;
    }
    return std::nullopt;
}

bool IsOutdatedVendorKeyLink(std::uint32_t providerType, std::wstring_view providerName) {
    bool outdatedType = false;
    for (std::uint32_t type : kOutdatedProviderTypes) {
        outdatedType = outdatedType || providerType == type;
    }
    return outdatedType &&
           (providerName.empty() || providerName.find(kVendorWord) != std::wstring_view::npos);
}

} // namespace setuputils
