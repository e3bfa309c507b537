#include "readers/reader_rows.h"

#include <gtest/gtest.h>

namespace setuputils {
namespace {

using Items = std::vector<std::wstring>;

TEST(ReaderRows, SplitListPropertyKeepsBlanksAndEmptyItems) {
    EXPECT_EQ(SplitListProperty(L"A,B"), (Items{L"A", L"B"}));
    EXPECT_EQ(SplitListProperty(L"A,"), (Items{L"A", L""}));
    EXPECT_EQ(SplitListProperty(L"A, B"), (Items{L"A", L" B"}));
    EXPECT_EQ(SplitListProperty(L" A , B "), (Items{L" A ", L" B "}));
    EXPECT_EQ(SplitListProperty(L""), (Items{L""}));
    EXPECT_EQ(SplitListProperty(L",A,,B"), (Items{L"", L"A", L"", L"B"}));
}

TEST(ReaderRows, ValuePlacesBelowTheConfigurationKey) {
    const std::wstring key = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\KeyCarriers\\Flash";
    // Only the whole text "-" names the default value.
    for (const wchar_t* parameter : {L"-", L"--", L" -", L"Dll"}) {
        const std::wstring name = parameter == std::wstring(L"-") ? L"" : parameter;
        auto places = ReaderValuePlaces(L"KeyCarriers", L"Flash", parameter, std::nullopt);
        ASSERT_EQ(places.size(), 1u);
        EXPECT_EQ(places[0].identifier, key + L"\\" + name);
        EXPECT_EQ(places[0].key, key);
        EXPECT_EQ(places[0].name, name);
    }
    // A list property, even an empty one, puts every item one key level deeper.
    auto places = ReaderValuePlaces(L"KeyCarriers", L"Flash", L"-", std::wstring(L"A,"));
    ASSERT_EQ(places.size(), 2u);
    EXPECT_EQ(places[1].identifier, key + L"\\\\");
    EXPECT_EQ(places[1].key, key + L"\\");
    EXPECT_EQ(ReaderValuePlaces(L"KeyCarriers", L"Flash", L"-", std::wstring())[0].key, key + L"\\");
}

} // namespace
} // namespace setuputils
