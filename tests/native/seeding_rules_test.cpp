#include "rng/seeding_rules.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace setuputils {
namespace {

TEST(SeedingRules, DataSplitsAtSlashesAsFarAsItHasFields) {
    const RunOnceRequest named = SplitRunOnceRequest(L"a//b /c");
    EXPECT_EQ(named.entryName + L"|" + named.command, L"a|/b /c");
    const RunOnceRequest unnamed = SplitRunOnceRequest(L"rng.exe");
    EXPECT_EQ(unnamed.entryName + L"|" + unnamed.command, L"InstallCSP|rng.exe");
    const RunOnceRequest empty = SplitRunOnceRequest(L"/");
    EXPECT_EQ(empty.entryName + L"|" + empty.command, L"|");

    const auto warning = [](const wchar_t* data) {
        const SeedingWarning w = SplitSeedingWarning(data);
        return w.caption + L"|" + w.ownerTitle + L"|" + w.message;
    };
    EXPECT_EQ(warning(L"C/T/M/N"), L"C|T|M/N");
    EXPECT_EQ(warning(L"C/M"), L"C||M");
    EXPECT_EQ(warning(L"M"), L"||M");
    EXPECT_EQ(warning(L"//"), L"||");
}

TEST(SeedingRules, FlagsAreAFourByteDwordWithTheInitialisedBit) {
    const std::vector<std::uint8_t> high = {0x02, 0, 0, 0x80};
    const std::vector<std::uint8_t> shorter = {0x02};
    const std::vector<std::uint8_t> longer = {0x02, 0, 0, 0, 0};
    EXPECT_EQ(SeedFlagsFromData(kDwordValueType, high)->value, 0x80000002u);
    EXPECT_TRUE(IsSeeded(0, SeedFlagsFromData(kDwordValueType, shorter)));
    EXPECT_FALSE(IsSeeded(0, SeedFlagsFromData(kDwordValueType, longer)));
    EXPECT_FALSE(IsSeeded(0, SeedFlagsFromData(kBinaryValueType, shorter)));
    EXPECT_FALSE(IsSeeded(SeedTypeStatus(1 /* REG_SZ */), SeedFlagsFromData(kDwordValueType, high)));
    EXPECT_FALSE(IsSeeded(0, SeedFlags{kDwordValueType, 0xFFFFFFFD}));
}

} // namespace
} // namespace setuputils
