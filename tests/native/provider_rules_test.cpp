#include "provider/default_provider_rules.h"
#include "provider/window_titles.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace setuputils {
namespace {

TEST(ProviderList, EntriesAreTakenWhileAColonRemains) {
    using List = std::vector<PackageProvider>;
    const struct {
        const wchar_t* data;
        List expected;
    } cases[] = {
        {L"", {}},
        {L"75 Norvane CSP", {}},
        {L"/", {}},
        {L"75:Norvane CSP", {{75, L"Norvane CSP"}}},
        {L"75:Norvane CSP/1:RSA/24:", {{75, L"Norvane CSP"}, {1, L"RSA"}, {24, L""}}},
        {L"75:A/trailing", {{75, L"A"}}},
        // The type is whatever stands before the next colon, read as _wtoi reads it.
        {L"75:A/junk/1:B", {{75, L"A"}, {0, L"B"}}},
        {L" 80x:A:B/:C", {{80, L"A:B"}, {0, L"C"}}},
        {L"-1:A", {{-1, L"A"}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ParseProviderList(c.data), c.expected) << c.data;
    }
}

TEST(ProviderList, DecimalsAreReadAsWtoiReadsThem) {
    const struct {
        const wchar_t* text;
        int value;
    } cases[] = {{L"75", 75},
                 {L"  +81", 81},
                 {L"\t-3x", -3},
                 {L"", 0},
                 {L"x1", 0},
                 {L"- 1", 0},
                 {L"2147483647", INT_MAX},
                 {L"99999999999", INT_MAX},
                 {L"-99999999999", INT_MIN}};
    for (const auto& c : cases) {
        EXPECT_EQ(ReadDecimal(c.text), c.value) << c.text;
    }
}

TEST(DefaultProviderRules, CurrentProvidersOutdatedTypesAndFallbacks) {
    EXPECT_TRUE(IsCurrentProvider(0x300, true, true));
    EXPECT_TRUE(IsCurrentProvider(0x12FF05, true, true)); // bits 8-15 only
    EXPECT_FALSE(IsCurrentProvider(0x2FF, true, true));
    EXPECT_FALSE(IsCurrentProvider(0x10200, true, true));
    EXPECT_FALSE(IsCurrentProvider(0x400, false, true));
    EXPECT_FALSE(IsCurrentProvider(0x400, true, false));
    for (int type : {75, 80, 81}) {
        EXPECT_TRUE(ReplacesOutdatedDefault(type)) << type;
    }
    for (int type : {1, 24, 71, 76, 0}) {
        EXPECT_FALSE(ReplacesOutdatedDefault(type)) << type;
    }
    EXPECT_EQ(SystemFallbackProvider(1), L"Microsoft Strong Cryptographic Provider");
    EXPECT_EQ(SystemFallbackProvider(24), L"Microsoft Enhanced RSA and AES Cryptographic Provider");
    EXPECT_EQ(SystemFallbackProvider(75), L"");
}

TEST(WindowTitles, InstallerTitlesJoinNameAndVersionWithoutABlank) {
    using Titles = std::vector<std::wstring>;
    EXPECT_EQ(InstallerWindowTitles(L"Norvane CSP", L"5.0.1", L"1033"),
              (Titles{L"Norvane CSP5.0.1 Setup", L"Norvane CSP Setup"}));
    const std::wstring russian = L"\u0423\u0441\u0442\u0430\u043D\u043E\u0432\u043A\u0430 \"";
    for (const wchar_t* language : {L"1049", L"", L"01033"}) {
        EXPECT_EQ(InstallerWindowTitles(L"Norvane CSP", L"5.0.1", language),
                  (Titles{russian + L"Norvane CSP5.0.1\"", russian + L"Norvane CSP\""}))
            << language;
    }
    EXPECT_EQ(ProductDialogTitles(L"Norvane CSP", L"5.0.1"), (Titles{L"Norvane CSP", L"Norvane CSP 5.0.1"}));
}

} // namespace
} // namespace setuputils
