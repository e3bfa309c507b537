#include "provider/certificate_rules.h"

#include <gtest/gtest.h>

namespace setuputils {
namespace {

TEST(CertificateRules, SignatureHashSizeByAlgorithm) {
    EXPECT_EQ(SignatureHashSize("1.2.643.2.2.3"), 32u);
    EXPECT_EQ(SignatureHashSize("1.2.643.7.1.1.3.2"), 32u);
    EXPECT_EQ(SignatureHashSize("1.2.643.7.1.1.3.3"), 64u);
    // The key algorithms, prefixes, longer identifiers and other signatures.
    for (const char* other : {"1.2.643.7.1.1.1.1", "1.2.643.2.2.19", "1.2.643.7.1.1.3", "1.2.643.7.1.1.3.33",
                              "1.2.643.2.2.3.1", "1.2.840.113549.1.1.11", ""}) {
        EXPECT_EQ(SignatureHashSize(other), std::nullopt) << other;
    }
}

TEST(CertificateRules, OnlyNamelessOrVendorLinksOfTheOldTypesMove) {
    struct Case {
        std::uint32_t type;
        const wchar_t* name;
        bool moves;
    };
    const Case cases[] = {
        {71, L"", true},
        {2, L"", true},
        {71, L"Norvane GOST R 34.10-2001 CSP", true},
        {2, L"Crypto-Pro via Norvane", true},
        {71, L"Other Vendor GOST CSP", false},
        {71, L"NORVANE CSP", false}, // the word is matched as written
        {75, L"", false},
        {75, L"Norvane CSP", false},
        {1, L"", false},
        {72, L"", false},
        {0, L"", false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(IsOutdatedVendorKeyLink(c.type, c.name), c.moves) << c.type << " '" << c.name << "'";
    }
}

} // namespace
} // namespace setuputils
