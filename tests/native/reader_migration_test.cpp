#include "readers/reader_migration.h"

#include <gtest/gtest.h>

namespace setuputils {
namespace {

TEST(ReaderMigration, DecideWhichRowsAreLookedAt) {
    constexpr auto kSkip = ReaderMigration::Skip, kFlag = ReaderMigration::Flag;
    constexpr auto kPath = ReaderMigration::KeyStorePath, kList = ReaderMigration::SubkeyList;
    const struct {
        const wchar_t* name;
        const wchar_t* condition;
        ReaderMigration expected;
    } cases[] = {
        {L"X\\Default", L"PROPX", kFlag},
        {L"X\\Defaults\\Y", L"PROPX", kFlag},
        {L"X\\Default", L"PROP X", kSkip},
        {L"X", L"PROPX", kSkip},
        {L"X\\default", L"PROPX", kSkip},
        {L"XDefault", L"PROPX", kSkip},
        {L"X", L"REGFLOPPY", kList},
        {L"X", L"REGDS1410E", kList},
        {L"X", L"REGDS9097E", kList},
        {L"X", L"REGDS9097U", kList},
        {L"X\\Default", L"REGFLOPPY", kList},
        {L"X", L"regfloppy", kSkip},
        {L"X\\Default", L"regfloppy", kFlag},
        {L"X", L"REGFLOPPY ", kSkip},
        {L"X\\Default", L"REGDSRF", kPath},
        {L"X", L"REGDSRF", kSkip},
        {L"X\\Default", L"REGDSRF = 1", kSkip},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(DecideReaderMigration(c.name, c.condition), c.expected) << c.name << " / " << c.condition;
    }
}

TEST(ReaderMigration, SubkeyListChoosesTheCommaByEnumerationIndex) {
    using Names = std::vector<std::wstring>;
    EXPECT_EQ(JoinSubkeyList(Names{L"A", L"PNP FAT12", L"B"}), L"A,B");
    EXPECT_EQ(JoinSubkeyList(Names{L"PNP FAT12", L"A", L"B"}), L",A,B");
    EXPECT_EQ(JoinSubkeyList(Names{L"A", L"PNP FAT12"}), L"A");
    EXPECT_EQ(JoinSubkeyList(Names{L"PNP FAT12"}), L"");
    EXPECT_EQ(JoinSubkeyList(Names{}), L"");
    EXPECT_EQ(JoinSubkeyList(Names{L"pnp fat12", L"PNP FAT12 ", L"B C"}), L"pnp fat12,PNP FAT12 ,B C");
}

TEST(ReaderMigration, KeyStorePathPrefixEndsBeforeTheStoreFolder) {
    EXPECT_EQ(KeyStorePathPrefix(L"D:\\keys\\db1\\kis_1"), L"D:\\keys");
    EXPECT_EQ(KeyStorePathPrefix(L"C:\\a\\db1\\kis_1\\b\\db1\\kis_1"), L"C:\\a");
    EXPECT_EQ(KeyStorePathPrefix(L"\\db1\\kis_1"), L"");
    EXPECT_EQ(KeyStorePathPrefix(L"D:\\keys\\db1\\kis_2"), L"");
    EXPECT_EQ(KeyStorePathPrefix(L"D:/keys/db1/kis_1"), L"");
}

} // namespace
} // namespace setuputils
