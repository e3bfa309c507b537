#include "readers/smart_card_types.h"

#include <gtest/gtest.h>

#include <cstring>

namespace setuputils {
namespace {

CardBytes Utf16(std::wstring_view text) {
    CardBytes bytes(text.size() * sizeof(wchar_t));
    std::memcpy(bytes.data(), text.data(), bytes.size());
    return bytes;
}

TEST(SmartCardTypes, ParseCardBytes) {
    const struct {
        const wchar_t* text;
        std::optional<CardBytes> bytes;
    } cases[] = {
        {L"#x3B8F", CardBytes{0x3B, 0x8F}},
        {L"#x3b8f0", CardBytes{0x3B, 0x8F}}, // a trailing odd character is ignored
        {L"ab#x01", CardBytes{0x01}},        // from the first "#" on
        {L"#x", CardBytes{}},
        {L"#", CardBytes{}},
        {L"#xG3", CardBytes{0x00}},
        {L"#x3G", CardBytes{0x03}},
        {L"3B8F", std::nullopt},
        {L"", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ParseCardBytes(c.text), c.bytes) << c.text;
    }
    EXPECT_EQ(FormatCardBytes(CardBytes{0x00, 0x0A, 0xFF}), L"#x000AFF");
}

TEST(SmartCardTypes, MaskedAtrsMatchOnTheBitsBothMasksSet) {
    const struct {
        CardBytes atr1, mask1, atr2, mask2;
        bool match;
    } cases[] = {
        {{0x3B, 0x01}, {0xFF, 0xFF}, {0x3B, 0x01}, {0xFF, 0xFF}, true},
        {{0x3B, 0x01}, {0xFF, 0xFF}, {0x3B, 0x02}, {0xFF, 0xFF}, false},
        {{0x3B, 0x02}, {0xFF, 0xFF}, {0x3B, 0x05}, {0xFF, 0xF0}, true}, // only the first mask sets them
        {{0x3B, 0x02}, {0xFF, 0xF0}, {0x3B, 0x05}, {0xFF, 0xFF}, true}, // only the second
        {{0x3B, 0x12}, {0xFF, 0xF0}, {0x3B, 0x05}, {0xFF, 0xFF}, false},
        {{0x3B}, {}, {0x4C, 0x01}, {0xFF, 0xFF}, true}, // an empty mask matches everything
        {{0x3B}, {0xFF}, {0x4C, 0x01}, {}, true},
        {{0x3B, 0x01}, {0xFF}, {0x3B, 0x02}, {0xFF, 0xFF}, true}, // beyond the shorter mask
        {{0x3B}, {0xFF, 0xFF}, {0x3B, 0x00}, {0xFF, 0xFF}, true}, // a missing ATR byte is 0
        {{0x3B}, {0xFF, 0xFF}, {0x3B, 0x01}, {0xFF, 0xFF}, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MaskedAtrsMatch(c.atr1, c.mask1, c.atr2, c.mask2), c.match) << FormatCardBytes(c.atr1);
        EXPECT_EQ(MaskedAtrsMatch(c.atr2, c.mask2, c.atr1, c.mask1), c.match) << FormatCardBytes(c.atr1);
    }
}

TEST(SmartCardTypes, CardsAndTheirKeys) {
    CardRowsByName rows;
    const wchar_t* const table[][3] = {
        {L"Vendor\\Model", L"Mask", L"#xFFFF"},
        {L"Vendor\\Model", L"ATR", L"#x3B00"},
        {L"Vendor\\Model", L"ATR", L"#x3B01"},
        {L"Vendor\\Model", L"Value", L"#x3B02"},
        {L"Vendor_Model", L"ATR", L"#x3B01"},
        {L"Vendor_Model", L"Mask", L"#xFF"},
        {L"A\\B\\C", L"ATR", L"#x3B"},
        {L"A\\B\\C", L"Mask", L"#xFF"},
        {L"Only ATR", L"ATR", L"#x3B"},
        {L"Only mask", L"Mask", L"#xFF"},
        {L"No hash", L"ATR", L"3B"},
        {L"No hash", L"Mask", L"#xFF"},
        {L"Token", L"ATR", L"#x3C"},
        {L"Token", L"Mask", L"#x"},
    };
    for (const auto& row : table) {
        AddCardRow(rows, row[0], row[1], row[2]);
    }
    const CardList list = BuildCalaisCards(rows, L"CSP");
    ASSERT_EQ(list.cards.size(), 2u);
    EXPECT_EQ(list.cards[0].name, L"Token");
    EXPECT_EQ(list.cards[0].mask, CardBytes{});
    EXPECT_EQ(list.cards[1].name, L"Vendor\\Model");
    EXPECT_EQ(list.cards[1].atr, (CardBytes{0x3B, 0x01})); // the later row
    EXPECT_EQ(list.cards[1].provider, L"CSP");
    EXPECT_EQ(CardKeyName(L"Vendor\\Model"), L"NV_Vendor_Model");
    EXPECT_EQ(CardKeyName(L"Token"), L"NV_Token");
    EXPECT_TRUE(IsOwnCardKey(L"NV_Token") && IsOwnCardKey(L"nv_token"));
    EXPECT_FALSE(IsOwnCardKey(L"NVToken") || IsOwnCardKey(L"NV") || IsOwnCardKey(L"Token NV_"));

    std::vector<std::pair<std::wstring, CardDefect>> leftOut;
    for (const LeftOutCard& card : list.leftOut) {
        leftOut.emplace_back(card.name, card.defect);
    }
    EXPECT_EQ(leftOut,
              (std::vector<std::pair<std::wstring, CardDefect>>{{L"A\\B\\C", CardDefect::BadKeyName},
                                                                {L"No hash", CardDefect::NoHash},
                                                                {L"Only ATR", CardDefect::NoMask},
                                                                {L"Only mask", CardDefect::NoAtr},
                                                                {L"Vendor_Model", CardDefect::KeyTaken}}));
}

// The installer's reading of these texts is shown by the Wine tests; here
// the forms they do not meet.
TEST(SmartCardTypes, RegistryValueText) {
    EXPECT_EQ(RegistryValueText(kRegTypeString, Utf16(std::wstring_view(L"ab\0c", 4))), L"ab");
    EXPECT_EQ(RegistryValueText(kRegTypeMultiString, Utf16(std::wstring_view(L"a\0\0b\0", 5))), L"[~]a[~]");
    EXPECT_EQ(RegistryValueText(kRegTypeDword, CardBytes{5, 0, 0}), L"#x050000");
    EXPECT_EQ(RegistryValueText(11, CardBytes{1, 0, 0, 0, 0, 0, 0, 0}), L"#x0100000000000000");
}

} // namespace
} // namespace setuputils
