#include "legacy/uninstall_rules.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace setuputils {
namespace {

using namespace std::string_literals;

TEST(UninstallRules, CommandLineAppendsTheSwitchesWithoutBlanksBeforeTheQuotes) {
    EXPECT_EQ(UninstallCommandLine(L"\"C:\\Old Setup\\setup.exe\" ", L"C:\\T\\u.iss", L"C:\\T\\u.log"),
              L"\"C:\\Old Setup\\setup.exe\" -s -f1\"C:\\T\\u.iss\" -f2\"C:\\T\\u.log\"");
    // No blank is added where the uninstall string lacks one.
    EXPECT_EQ(UninstallCommandLine(L"setup.exe", L"a", L"b"), L"setup.exe-s -f1\"a\" -f2\"b\"");
}

TEST(UninstallRules, ResultCodeIsTheNumberAfterTheFirstMarker) {
    constexpr std::int32_t kMax = 2147483647;
    const struct {
        std::string log;
        std::optional<std::int32_t> code;
    } cases[] = {
        {"[Result]\r\nResultCode=0\r\n", 0},
        {"ResultCode=-3\r\nResultCode=0\r\n", -3},
        {"ResultCode=0\r\nResultCode=-3\r\n", 0},
        {"x ResultCode= \t+12abc", 12},
        {"ResultCode=-2147483648", -kMax - 1},
        {"ResultCode=4294967296", kMax},
        {"ResultCode=-99999999999999999999", -kMax - 1},
        {"ResultCode=", std::nullopt},
        {"ResultCode=-", std::nullopt},
        {"ResultCode=x1", std::nullopt},
        {"ResultCode =1\r\nresultcode=1", std::nullopt},
        {"", std::nullopt},
        // The log is text up to its first zero byte.
        {"Result\0Code=1\r\nResultCode=2"s, std::nullopt},
        {"ResultCode=7\0ResultCode=8"s, 7},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FindResultCode(c.log), c.code) << c.log;
    }
    // Nothing beyond the data is read: a marker cut off by the size is no marker.
    const std::string log = "ResultCode=5";
    EXPECT_EQ(FindResultCode(std::string_view(log).substr(0, 11)), std::nullopt);
    EXPECT_EQ(FindResultCode(std::string_view(log).substr(0, 10)), std::nullopt);
}

TEST(UninstallRules, PendingRenamesKeepTheirInnerNulsOnlyWhenWellFormed) {
    const struct {
        std::wstring characters;
        bool oddByte; // one more byte read than the characters hold
        std::uint32_t status;
        std::wstring operations;
    } cases[] = {
        {L"\\??\\a\0\0\\??\\b\0\\??\\c\0\0"s, false, 0, L"\\??\\a\0\0\\??\\b\0\\??\\c\0"s},
        {L"\0\0"s, false, 0, L"\0"s},
        {L"\\??\\a\0\0\\??\\b\0\\??\\c\0\0"s, true, kMalformedPendingRenames, L"\\??\\a"},
        {L"\0"s, false, kMalformedPendingRenames, L""},
        {L""s, false, kMalformedPendingRenames, L""},
        {L"a\0b"s, false, kMalformedPendingRenames, L"a"},
        {L"ab\0"s, false, kMalformedPendingRenames, L"ab"},
        {L"ab"s, false, kMalformedPendingRenames, L"ab"},
    };
    for (const auto& c : cases) {
        const PendingRenames kept = KeepPendingRenames(c.characters, c.characters.size() * 2 + c.oddByte);
        EXPECT_EQ(kept.status, c.status) << c.characters.size();
        EXPECT_EQ(kept.operations, c.operations) << c.characters.size();
    }
}

TEST(UninstallRules, SavedRenamesComeBeforeTheNewOnes) {
    EXPECT_EQ(MergePendingRenames(L"\\??\\a\0\0"s, L"\\??\\b\0\\??\\c\0"s),
              L"\\??\\a\0\0\\??\\b\0\\??\\c\0"s);
    EXPECT_EQ(MergePendingRenames(L"\\??\\a\0"s, L""), L"\\??\\a\0"s);
}

} // namespace
} // namespace setuputils
