#include "provider/certificate_rules.h"
#include "provider/default_provider_rules.h"
#include "provider/window_titles.h"

#include <gtest/gtest.h>

#include <climits>

namespace setuputils {
namespace {

// Entries are taken while a colon remains; the type is whatever stands before
// the next colon, read as _wtoi reads it (blanks, a sign, digits, saturated).
TEST(ProviderList, EntriesAreTakenWhileAColonRemains) {
    using List = std::vector<PackageProvider>;
    EXPECT_EQ(ParseProviderList(L""), List{});
    EXPECT_EQ(ParseProviderList(L"75 Norvane CSP"), List{});
    EXPECT_EQ(ParseProviderList(L"75:Norvane CSP/1:RSA/24:"),
              (List{{75, L"Norvane CSP"}, {1, L"RSA"}, {24, L""}}));
    EXPECT_EQ(ParseProviderList(L"75:A/junk/1:B/x"), (List{{75, L"A"}, {0, L"B"}}));
    EXPECT_EQ(ParseProviderList(L" 80x:A:B/:C"), (List{{80, L"A:B"}, {0, L"C"}}));
    std::vector<int> read;
    for (const wchar_t* text :
         {L"  +81", L"\t-3x", L"- 1", L"x1", L"", L"2147483647", L"99999999999", L"-99999999999"}) {
        read.push_back(ReadDecimal(text));
    }
    EXPECT_EQ(read, (std::vector<int>{81, -3, 0, 0, 0, INT_MAX, INT_MAX, INT_MIN}));
}

// Current: a major version (bits 8-15) of 3 or more, and both parameters answered.
TEST(DefaultProviderRules, CurrentProvidersOutdatedTypesAndFallbacks) {
    EXPECT_TRUE(IsCurrentProvider(0x300, true, true) && IsCurrentProvider(0x12FF05, true, true));
    EXPECT_FALSE(IsCurrentProvider(0x2FF, true, true) || IsCurrentProvider(0x10200, true, true));
    EXPECT_FALSE(IsCurrentProvider(0x400, false, true) || IsCurrentProvider(0x400, true, false));
    std::vector<int> replaced;
    for (int type = -1; type < 1000; ++type) {
        if (ReplacesOutdatedDefault(type)) {
            replaced.push_back(type);
        }
    }
    EXPECT_EQ(replaced, (std::vector<int>{75, 80, 81}));
    EXPECT_EQ(SystemFallbackProvider(1), L"Microsoft Strong Cryptographic Provider");
    EXPECT_EQ(SystemFallbackProvider(24), L"Microsoft Enhanced RSA and AES Cryptographic Provider");
    EXPECT_EQ(SystemFallbackProvider(75), L"");
}

// Name and version join without a blank; any language but "1033" gets the Russian title.
TEST(WindowTitles, InstallerAndProductTitles) {
    using Titles = std::vector<std::wstring>;
    EXPECT_EQ(InstallerWindowTitles(L"N", L"5.0", L"1033"), (Titles{L"N5.0 Setup", L"N Setup"}));
    const std::wstring russian = L"\u0423\u0441\u0442\u0430\u043D\u043E\u0432\u043A\u0430 \"";
    for (const wchar_t* language : {L"1049", L"", L"01033"}) {
        EXPECT_EQ(InstallerWindowTitles(L"N", L"5.0", language),
                  (Titles{russian + L"N5.0\"", russian + L"N\""}));
    }
    EXPECT_EQ(ProductDialogTitles(L"N", L"5.0"), (Titles{L"N", L"N 5.0"}));
}

// Hash sizes: key algorithms, prefixes and longer identifiers are other algorithms. Links
// of types 2 and 71 move when nameless or named with the vendor's word as written.
TEST(CertificateRules, SignatureHashSizesAndOutdatedKeyLinks) {
    const std::pair<const char*, std::optional<std::size_t>> cases[] = {
        {"1.2.643.2.2.3", 32},     {"1.2.643.7.1.1.3.2", 32},
        {"1.2.643.7.1.1.3.3", 64}, {"1.2.643.7.1.1.1.1", {}},
        {"1.2.643.7.1.1.3", {}},   {"1.2.643.7.1.1.3.33", {}},
        {"1.2.643.2.2.3.1", {}},   {"", {}}};
    for (const auto& [oid, size] : cases) {
        EXPECT_EQ(SignatureHashSize(oid), size) << oid;
    }
    std::vector<std::uint32_t> moved;
    for (std::uint32_t type = 0; type < 1000; ++type) {
        if (IsOutdatedVendorKeyLink(type, L"")) {
            moved.push_back(type);
        }
    }
    EXPECT_EQ(moved, (std::vector<std::uint32_t>{2, 71}));
    EXPECT_TRUE(IsOutdatedVendorKeyLink(71, L"Norvane GOST CSP") &&
                IsOutdatedVendorKeyLink(2, L"via Norvane"));
    EXPECT_FALSE(IsOutdatedVendorKeyLink(71, L"Other GOST CSP") ||
                 IsOutdatedVendorKeyLink(71, L"NORVANE CSP") || IsOutdatedVendorKeyLink(75, L"Norvane CSP"));
}

} // namespace
} // namespace setuputils
