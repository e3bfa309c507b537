#include "frame/driver_action_data.h"
#include "frame/log_format.h"

#include <gtest/gtest.h>

#include <climits>

namespace setuputils {
namespace {

// Joins fields with the separator.
std::wstring Data(std::initializer_list<std::wstring_view> fields) {
    std::wstring text;
    for (std::wstring_view field : fields) {
        text.append(1, kDriverDataSeparator).append(field);
    }
    return text.substr(1);
}

// Read as _wtol reads: blanks, a sign, digits. Saturated at either end whichever
// digit crosses the limit, and LONG_MIN itself is reached.
TEST(ParseLeadingLong, ReadsAsWtolDoes) {
    const std::wstring min = std::to_wstring(LONG_MIN), max7 = std::to_wstring(LONG_MAX - 7);
    const std::wstring min8 = std::to_wstring(LONG_MIN + 8), min1 = min.substr(0, min.size() - 1) + L"9";
    const std::wstring max1 = std::to_wstring(static_cast<unsigned long>(LONG_MAX) + 1);
    using Case = std::pair<std::wstring, long>;
    const Case cases[] = {
        {L" \t\n\v\f\r-4x", -4}, {L"+-5", 0},          {L"- 5", 0},      {L"", 0},        {min, LONG_MIN},
        {max7, LONG_MAX - 7},    {min8, LONG_MIN + 8}, {max1, LONG_MAX}, {min1, LONG_MIN}};
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(ParseLeadingLong(text), value) << testing::PrintToString(text);
    }
}

// The parsed fields as "inf path,component id,flags,ticks[,service name]", or "none".
std::wstring Parsed(const std::wstring& text, bool withServiceName) {
    auto data = ParseDriverActionDataText(text, withServiceName);
    if (!data) {
        return L"none";
    }
    std::wstring parsed = data->infPath + L"," + data->componentId + L"," + std::to_wstring(data->flags) +
                          L"," + std::to_wstring(data->progressTicks);
    return data->serviceName ? parsed + L"," + *data->serviceName : parsed;
}

// Only a bar inside field 2 divides the short and the long name; the service
// name is the verbatim rest, and only when asked for.
TEST(ParseDriverActionData, SplitsTheFields) {
    const std::wstring full = Data({L"C:\\D\\", L"drv.inf", L"{ID}", L"5", L"3000000", L"nvdrv"});
    const struct {
        std::wstring text;
        bool withServiceName;
        std::wstring parsed;
    } cases[] = {{Data({L"d\\", L"f", L"c", L" -3x", L"+12 y"}), false, L"d\\f,c,-3,12"},
                 {Data({L"C:\\D\\", L"long.inf", L"{A|B}", L"5", L"7"}), false, L"C:\\D\\long.inf,{A|B},5,7"},
                 {Data({L"C:\\a|b\\", L"long.inf", L"c", L"5", L"7"}), false, L"C:\\a|b\\long.inf,c,5,7"},
                 {Data({L"C:\\D\\", L"S|", L"c", L"5", L"7"}), false, L"C:\\D\\,c,5,7"},
                 {Data({L"C:\\D\\", L"|long.inf", L"c|d", L"5", L"7"}), false, L"C:\\D\\long.inf,c|d,5,7"},
                 {full, true, L"C:\\D\\drv.inf,{ID},5,3000000,nvdrv"},
                 {full, false, L"C:\\D\\drv.inf,{ID},5,3000000"},
                 {full + L"\x0001x|y\x0001", true, L"C:\\D\\drv.inf,{ID},5,3000000,nvdrv\x0001x|y\x0001"},
                 {Data({L"d\\", L"f", L"c", L"1", L"2", L""}), true, L"d\\f,c,1,2,"}};
    for (const auto& c : cases) {
        EXPECT_EQ(Parsed(c.text, c.withServiceName), c.parsed) << testing::PrintToString(c.text);
    }
    // A separator missing, or field 4 empty.
    for (const std::wstring& text : {std::wstring(), Data({L"d\\", L""}), Data({L"d\\", L"f", L"c"}),
                                     Data({L"d\\", L"f", L"c", L""}), Data({L"d\\", L"f", L"c", L"5"})}) {
        EXPECT_EQ(Parsed(text, true), L"none") << testing::PrintToString(text);
    }
}

// Flags are written unsigned; the ticks are the fixed progress of a package.
TEST(DriverActionData, BuildWritesTheFieldsThatParseReads) {
    std::wstring text = BuildDriverActionData(L"C:\\a|b\\", L"S~1.INF|long.inf", L"{C|D}", 4294967295u);
    AppendServiceName(text, L"nvdrv");
    EXPECT_EQ(text, Data({L"C:\\a|b\\", L"S~1.INF|long.inf", L"{C|D}", L"4294967295", L"3000000", L"nvdrv"}));
}

// Cut at 511 characters from the first buffer's size to beyond the sizes it
// grows through; the arguments are read again for each larger buffer.
TEST(FormatLogLine, FollowsWidePrintfRulesAndKeepsAtMost511Characters) {
    EXPECT_EQ(FormatLogLine(L""), L"");
    EXPECT_EQ(FormatLogLine(L"%d|%u|%X|%ls|%5d|%%", -42, 4000000000u, 0xbeefu, L"\u00e9\u20ac", 7),
              L"-42|4000000000|BEEF|\u00e9\u20ac|    7|%");
    std::wstring digits;
    for (int i = 0; i < 30000; ++i) {
        digits += L"0123456789"; // every prefix distinct, so that a wrong cut shows
    }
    for (std::size_t length : {511u, 512u, 4096u, 300000u}) {
        EXPECT_EQ(FormatLogLine(L"%ls", digits.substr(0, length).c_str()), digits.substr(0, 511)) << length;
    }
    EXPECT_EQ(FormatLogLine(L"%*d", 300000, 7), std::wstring(511, L' '));
    EXPECT_EQ(FormatLogLine(L"%d:%ls:%u", -12345, digits.c_str(), 99u), (L"-12345:" + digits).substr(0, 511));
}

} // namespace
} // namespace setuputils
