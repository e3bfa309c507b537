#include "frame/log_format.h"

#include <gtest/gtest.h>

#include <string>

namespace setuputils {
namespace {

// Text whose every prefix is distinct, so that a wrong cut shows.
std::wstring Digits(std::size_t length) {
    std::wstring text;
    for (std::size_t i = 0; i < length; ++i) {
        text.push_back(static_cast<wchar_t>(L'0' + i % 10));
    }
    return text;
}

TEST(FormatLogLine, FollowsWidePrintfRules) {
    EXPECT_EQ(FormatLogLine(L""), L"");
    EXPECT_EQ(FormatLogLine(L"plain 100%% text"), L"plain 100% text");
    EXPECT_EQ(FormatLogLine(L"%d|%u|%x|%X", -42, 4000000000u, 0xbeefu, 0xbeefu), L"-42|4000000000|beef|BEEF");
    EXPECT_EQ(FormatLogLine(L"[%ls] [%ls] %d", L"C:\\D\\drv.inf", L"", 0), L"[C:\\D\\drv.inf] [] 0");
    EXPECT_EQ(FormatLogLine(L"%ls", L"\u00e9\u20ac"), L"\u00e9\u20ac");
    EXPECT_EQ(FormatLogLine(L"%5d|%-3u|%08X", 7, 1u, 0xabu), L"    7|1  |000000AB");
}

TEST(FormatLogLine, KeepsAtMost511Characters) {
    for (std::size_t length : {510u, 511u, 512u, 513u, 4095u, 4096u, 40000u}) {
        SCOPED_TRACE(length);
        std::wstring text = Digits(length);
        EXPECT_EQ(FormatLogLine(L"%ls", text.c_str()), text.substr(0, 511));
    }
    // A long literal format is cut the same way.
    std::wstring format = Digits(600);
    EXPECT_EQ(FormatLogLine(format.c_str()), format.substr(0, 511));
}

TEST(FormatLogLine, RereadsArgumentsWhenTheFirstBufferIsTooSmall) {
    std::wstring text = Digits(1000);
    std::wstring line = FormatLogLine(L"%d:%ls:%u", -12345, text.c_str(), 99u);
    EXPECT_EQ(line, (L"-12345:" + text).substr(0, 511));
    // Output that fits exactly, with arguments on both sides of the long one.
    text = Digits(511 - 4);
    EXPECT_EQ(FormatLogLine(L"%d%ls%X", 12, text.c_str(), 0xabu), L"12" + text + L"AB");
}

// Output of more than 262143 characters comes back empty rather than cut to
// 511 characters: the buffer only grows to 262144 before giving up.
TEST(FormatLogLine, CutsVeryLongOutputToo) {
    std::wstring text = Digits(300000);
    EXPECT_EQ(FormatLogLine(L"%ls", text.c_str()), text.substr(0, 511));
    EXPECT_EQ(FormatLogLine(L"%*d", 300000, 7), std::wstring(511, L' '));
}

} // namespace
} // namespace setuputils
