#include "frame/driver_action_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <iterator>

namespace setuputils {
namespace {

constexpr wchar_t S = kDriverDataSeparator;

// Joins fields with the separator.
std::wstring Data(std::initializer_list<std::wstring_view> fields) {
    std::wstring text;
    bool first = true;
    for (std::wstring_view field : fields) {
        if (!first) {
            text.push_back(S);
        }
        text.append(field);
        first = false;
    }
    return text;
}

// Read as _wtol reads: leading blanks and a sign, then digits; saturating at either end.
TEST(ParseLeadingLong, ReadsAsWtolDoes) {
    const std::wstring max = std::to_wstring(LONG_MAX), min = std::to_wstring(LONG_MIN);
    const std::pair<std::wstring, long> cases[] = {
        {L"42", 42},
        {L" \t\n\v\f\r-42abc", -42},
        {L"+7", 7},
        {L"12 34", 12},
        {L"0000000000000000000000000000019", 19},
        {L"-0", 0},
        {max, LONG_MAX},
        {min, LONG_MIN},
        {std::to_wstring(LONG_MAX - 7), LONG_MAX - 7},
        {std::to_wstring(LONG_MIN + 8), LONG_MIN + 8},
        {max + L"0", LONG_MAX},
        {min + L"0", LONG_MIN},
        {std::to_wstring(static_cast<unsigned long>(LONG_MAX) + 1), LONG_MAX},
        {L"-" + std::to_wstring(static_cast<unsigned long>(LONG_MAX) + 2), LONG_MIN},
        {L"99999999999999999999999x", LONG_MAX},
        {L"  -99999999999999999999999", LONG_MIN},
    };
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(ParseLeadingLong(text), value) << testing::PrintToString(text);
    }
    for (const wchar_t* text : {L"", L"   ", L"abc", L"-", L"+", L"--5", L"+-5", L"- 5"}) {
        EXPECT_EQ(ParseLeadingLong(text), 0) << testing::PrintToString(std::wstring(text));
    }
}

// The fields of a whole text are checked by RoundTrips below.
TEST(ParseDriverActionData, NumbersAreReadAsWtolReadsThem) {
    auto data = ParseDriverActionDataText(Data({L"d\\", L"f", L"c", L" -3x", L"+12 y"}), false);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->flags, -3);
    EXPECT_EQ(data->progressTicks, 12);
}

TEST(ParseDriverActionData, OnlyABarInField2DividesShortAndLongNames) {
    struct Case {
        std::wstring text;
        const wchar_t* infPath;
        const wchar_t* componentId;
    };
    const Case cases[] = {
        {Data({L"C:\\D\\", L"long.inf", L"{A|B}", L"5", L"3000000"}), L"C:\\D\\long.inf", L"{A|B}"},
        {Data({L"C:\\a|b\\", L"long.inf", L"c", L"5", L"3000000"}), L"C:\\a|b\\long.inf", L"c"},
        {Data({L"C:\\D\\", L"S|", L"c", L"5", L"3000000"}), L"C:\\D\\", L"c"},
        {Data({L"C:\\D\\", L"|long.inf", L"c|d", L"5", L"3000000"}), L"C:\\D\\long.inf", L"c|d"},
    };
    for (const Case& c : cases) {
        auto data = ParseDriverActionDataText(c.text, false);
        ASSERT_TRUE(data) << testing::PrintToString(c.text);
        EXPECT_EQ(data->infPath, c.infPath);
        EXPECT_EQ(data->componentId, c.componentId);
    }
}

TEST(ParseDriverActionData, ServiceNameIsTheVerbatimRestWhenAskedFor) {
    std::wstring text = Data({L"C:\\D\\", L"drv.inf", L"{ID}", L"5", L"3000000", L"nvdrv"});
    EXPECT_EQ(ParseDriverActionDataText(text, true).value().serviceName, L"nvdrv");
    EXPECT_EQ(ParseDriverActionDataText(text, false).value().serviceName, std::nullopt);
    DriverActionData data = ParseDriverActionDataText(text + S + L"x|y" + S, true).value();
    EXPECT_EQ(data.serviceName, Data({L"nvdrv", L"x|y", L""}));
    EXPECT_EQ(data.progressTicks, 3000000);
    data = ParseDriverActionDataText(Data({L"d\\", L"f", L"c", L"1", L"2", L""}), true).value();
    EXPECT_EQ(data.serviceName, L"");
}

TEST(ParseDriverActionData, RejectsMissingFields) {
    for (const std::wstring& text :
         {std::wstring(), std::wstring(L"C:\\D\\drv.inf"), Data({L"d\\", L""}), Data({L"d\\", L"f", L"c"}),
          Data({L"d\\", L"f", L"c", L""}), Data({L"d\\", L"f", L"c", L"5"}), std::wstring(3, S)}) {
        EXPECT_EQ(ParseDriverActionDataText(text, true), std::nullopt) << testing::PrintToString(text);
    }
}

TEST(DriverActionData, RoundTrips) {
    for (unsigned flags : {0u, 1u, 0x7fffffffu}) {
        std::wstring text = BuildDriverActionData(L"C:\\a|b\\", L"SHORT~1.INF|long.inf", L"{C|D}", flags);
        EXPECT_EQ(text, Data({L"C:\\a|b\\", L"SHORT~1.INF|long.inf", L"{C|D}", std::to_wstring(flags),
                              L"3000000"}));
        AppendServiceName(text, L"nvdrv");
        auto data = ParseDriverActionDataText(text, true);
        ASSERT_TRUE(data);
        EXPECT_EQ(data->infPath, L"C:\\a|b\\long.inf");
        EXPECT_EQ(data->componentId, L"{C|D}");
        EXPECT_EQ(data->flags, static_cast<long>(flags));
        EXPECT_EQ(data->progressTicks, kDriverProgressTicks);
        EXPECT_EQ(data->serviceName, L"nvdrv");
    }
    // Flags of 2^31 and more saturate where long has 32 bits.
    auto data = ParseDriverActionDataText(BuildDriverActionData(L"d\\", L"f", L"c", UINT_MAX), false);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->flags, static_cast<long>(std::min<unsigned long>(UINT_MAX, LONG_MAX)));
}

} // namespace
} // namespace setuputils
