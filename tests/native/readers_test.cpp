#include "readers/reader_migration.h"
#include "readers/reader_rows.h"
#include "readers/smart_card_types.h"

#include <gtest/gtest.h>

namespace setuputils {
namespace {

using Names = std::vector<std::wstring>;

// Rows named "...\Default" as written, or whose Condition names a subkey list exactly (no blank).
TEST(ReaderMigration, DecideWhichRowsAreLookedAt) {
    constexpr auto kSkip = ReaderMigration::Skip, kFlag = ReaderMigration::Flag;
    constexpr auto kPath = ReaderMigration::KeyStorePath, kList = ReaderMigration::SubkeyList;
    using Case = std::tuple<const wchar_t*, const wchar_t*, ReaderMigration>;
    const Case cases[] = {{L"X\\Defaults\\Y", L"P", kFlag},     {L"X\\Default", L"P X", kSkip},
                          {L"X\\default", L"P", kSkip},         {L"X", L"P", kSkip},
                          {L"X\\Default", L"REGFLOPPY", kList}, {L"X", L"REGFLOPPY", kList},
                          {L"X", L"REGDS1410E", kList},         {L"X", L"REGDS9097E", kList},
                          {L"X", L"REGDS9097U", kList},         {L"X", L"regfloppy", kSkip},
                          {L"X\\Default", L"REGDSRF", kPath},   {L"X", L"REGDSRF", kSkip}};
    for (const auto& [name, condition, expected] : cases) {
        EXPECT_EQ(DecideReaderMigration(name, condition), expected) << name << " / " << condition;
    }
}

// The comma goes by enumeration index, so a left-out first subkey leaves a leading comma.
TEST(ReaderMigration, SubkeyListsAndKeyStorePaths) {
    EXPECT_EQ(JoinSubkeyList({L"A", L"PNP FAT12", L"B"}), L"A,B");
    EXPECT_EQ(JoinSubkeyList({L"PNP FAT12", L"A", L"B"}), L",A,B");
    EXPECT_EQ(KeyStorePathPrefix(L"C:\\a\\db1\\kis_1\\b\\db1\\kis_1"), L"C:\\a");
    EXPECT_EQ(KeyStorePathPrefix(L"D:/keys/db1/kis_1"), L"");
}

// Places as "key below the reader's key|value name;", each identifier checked against them.
std::wstring Places(const wchar_t* parameter, const std::optional<std::wstring>& list) {
    const std::wstring key = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\KeyCarriers\\Flash";
    std::wstring text;
    for (const ReaderValuePlace& place : ReaderValuePlaces(L"KeyCarriers", L"Flash", parameter, list)) {
        EXPECT_EQ(place.identifier, place.key + L"\\" + place.name);
        EXPECT_EQ(place.key.substr(0, key.size()), key);
        text += place.key.substr(key.size()) + L"|" + place.name + L";";
    }
    return text;
}

// Only "-" names the default value; a list puts each item, empty ones kept, one key level deeper.
TEST(ReaderRows, ValuePlaces) {
    EXPECT_EQ(Places(L"-", std::nullopt), L"|;");
    EXPECT_EQ(Places(L"-", L"A,"), L"\\A|;\\|;");
    EXPECT_EQ(SplitListProperty(L",A,,B"), (Names{L"", L"A", L"", L"B"}));
}

// Hex digit pairs after the first "#" and an "x"; an odd last digit is ignored, a non-digit ends a pair.
TEST(SmartCardTypes, CardBytesText) {
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"#x3b8f0", L"#x3B8F"}, {L"ab#x01", L"#x01"},       {L"#xG3", L"#x00"},
        {L"#x3G", L"#x03"},      {L"#x000aFF", L"#x000AFF"}, {L"#x", L"#x"},
        {L"#", L"#x"},           {L"3B8F", L"none"},         {L"", L"none"}};
    for (const auto& [text, bytes] : cases) {
        const std::optional<CardBytes> parsed = ParseCardBytes(text);
        EXPECT_EQ(parsed ? FormatCardBytes(*parsed) : L"none", bytes) << text;
    }
}

// Both ways round: only bits both masks set count, up to the shorter mask; a missing ATR byte is 0.
TEST(SmartCardTypes, MaskedAtrsMatchOnTheBitsBothMasksSet) {
    using Case = std::tuple<CardBytes, CardBytes, CardBytes, CardBytes, bool>;
    const Case cases[] = {{{0x3B, 0x01}, {0xFF, 0xFF}, {0x3B, 0x01}, {0xFF, 0xFF}, true},
                          {{0x3B, 0x01}, {0xFF, 0xFF}, {0x3B, 0x02}, {0xFF, 0xFF}, false},
                          {{0x3B, 0x02}, {0xFF, 0xFF}, {0x3B, 0x05}, {0xFF, 0xF0}, true},
                          {{0x3B}, {}, {0x4C, 0x01}, {0xFF, 0xFF}, true},
                          {{0x3B, 0x01}, {0xFF}, {0x3B, 0x02}, {0xFF, 0xFF}, true},
                          {{0x3B}, {0xFF, 0xFF}, {0x3B, 0x00}, {0xFF, 0xFF}, true},
                          {{0x3B}, {0xFF, 0xFF}, {0x3B, 0x01}, {0xFF, 0xFF}, false}};
    for (const auto& [atr1, mask1, atr2, mask2, match] : cases) {
        EXPECT_EQ(MaskedAtrsMatch(atr1, mask1, atr2, mask2), match) << FormatCardBytes(atr2);
        EXPECT_EQ(MaskedAtrsMatch(atr2, mask2, atr1, mask1), match) << FormatCardBytes(atr2);
    }
}

// Cards with a defect are left out (no mask, no "#": Wine tests).
TEST(SmartCardTypes, CardsAndTheirKeys) {
    CardRowsByName rows;
    using Card = std::tuple<const wchar_t*, const wchar_t*, const wchar_t*>; // name, ATR and Mask rows
    const Card cards[] = {{L"Vendor\\Model", L"#x3B01", L"#xFFFF"},
                          {L"Vendor_Model", L"#x3B01", L"#xFF"},
                          {L"Only mask", nullptr, L"#xFF"},
                          {L"A\\B\\C", L"#x3B", L"#xFF"}};
    for (const auto& [name, atr, mask] : cards) {
        if (atr) {
            AddCardRow(rows, name, L"ATR", atr);
        }
        if (mask) {
            AddCardRow(rows, name, L"Mask", mask);
        }
    }
    const CardList list = BuildCalaisCards(rows, L"CSP");
    ASSERT_EQ(list.cards.size(), 1u);
    EXPECT_EQ(list.cards[0].name + L"|" + FormatCardBytes(list.cards[0].atr) + L"|" + list.cards[0].provider,
              L"Vendor\\Model|#x3B01|CSP");
    std::vector<std::pair<std::wstring, CardDefect>> leftOut;
    for (const LeftOutCard& card : list.leftOut) {
        leftOut.emplace_back(card.name, card.defect);
    }
    EXPECT_EQ(leftOut, (decltype(leftOut){{L"A\\B\\C", CardDefect::BadKeyName},
                                          {L"Only mask", CardDefect::NoAtr},
                                          {L"Vendor_Model", CardDefect::KeyTaken}}));
}

} // namespace
} // namespace setuputils
