#include "frame/driver_action_data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <memory>
#include <vector>

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

TEST(ParseLeadingLong, ReadsAsWtolDoes) {
    EXPECT_EQ(ParseLeadingLong(L"42"), 42);
    EXPECT_EQ(ParseLeadingLong(L" \t\n\v\f\r-42abc"), -42);
    EXPECT_EQ(ParseLeadingLong(L"+7"), 7);
    EXPECT_EQ(ParseLeadingLong(L"12 34"), 12);
    EXPECT_EQ(ParseLeadingLong(L"0000000000000000000000000000019"), 19);
    EXPECT_EQ(ParseLeadingLong(L"-0"), 0);
    for (const wchar_t* text : {L"", L"   ", L"abc", L"-", L"+", L"--5", L"+-5", L"- 5"}) {
        EXPECT_EQ(ParseLeadingLong(text), 0) << "text: " << testing::PrintToString(std::wstring(text));
    }
}

TEST(ParseLeadingLong, SaturatesOnOverflow) {
    const std::wstring max = std::to_wstring(LONG_MAX), min = std::to_wstring(LONG_MIN);
    EXPECT_EQ(ParseLeadingLong(max), LONG_MAX);
    EXPECT_EQ(ParseLeadingLong(min), LONG_MIN);
    EXPECT_EQ(ParseLeadingLong(std::to_wstring(LONG_MAX - 7)), LONG_MAX - 7);
    EXPECT_EQ(ParseLeadingLong(std::to_wstring(LONG_MIN + 8)), LONG_MIN + 8);
    EXPECT_EQ(ParseLeadingLong(max + L"0"), LONG_MAX);
    EXPECT_EQ(ParseLeadingLong(min + L"0"), LONG_MIN);
    // One past either end, and values beyond 64 bits.
    EXPECT_EQ(ParseLeadingLong(std::to_wstring(static_cast<unsigned long>(LONG_MAX) + 1)), LONG_MAX);
    EXPECT_EQ(ParseLeadingLong(L"-" + std::to_wstring(static_cast<unsigned long>(LONG_MAX) + 2)), LONG_MIN);
    EXPECT_EQ(ParseLeadingLong(L"99999999999999999999999x"), LONG_MAX);
    EXPECT_EQ(ParseLeadingLong(L"  -99999999999999999999999"), LONG_MIN);
}

TEST(ParseDriverActionData, SplitsTheFields) {
    auto data = ParseDriverActionDataText(
        Data({L"C:\\D\\", L"SHORT~1.INF|long.inf", L"{ID}", L"5", L"3000000"}), true);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->infPath, L"C:\\D\\long.inf");
    EXPECT_EQ(data->componentId, L"{ID}");
    EXPECT_EQ(data->flags, 5);
    EXPECT_EQ(data->progressTicks, 3000000);
    EXPECT_FALSE(data->serviceName);

    data = ParseDriverActionDataText(Data({L"C:\\D\\", L"long.inf", L"{ID}", L"5", L"3000000"}), false);
    ASSERT_TRUE(data);
    EXPECT_EQ(data->infPath, L"C:\\D\\long.inf");

    // Numbers are read as _wtol reads them.
    data = ParseDriverActionDataText(Data({L"d\\", L"f", L"c", L" -3x", L"+12 y"}), false);
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

// Random short texts: the sanitizers watch every read, and whenever fields 4 and
// 5 are not empty the result must match a plain split on the separator.
TEST(ParseDriverActionData, RandomTexts) {
    constexpr wchar_t kAlphabet[] = {S, L'|', L'a', L'1', L'-', L' '};
    std::uint64_t state = 0x9e3779b97f4a7c15u;
    auto next = [&state] {
        state ^= state << 13, state ^= state >> 7, state ^= state << 17;
        return state;
    };
    for (int round = 0; round < 300000; ++round) {
        std::size_t length = next() % 17;
        std::unique_ptr<wchar_t[]> buffer(new wchar_t[length]); // exact size, so overreads are caught
        for (std::size_t i = 0; i < length; ++i) {
            buffer[i] = kAlphabet[next() % std::size(kAlphabet)];
        }
        std::wstring_view text(buffer.get(), length);
        std::vector<std::wstring_view> fields;
        for (std::size_t start = 0;;) {
            std::size_t end = std::min(text.find(S, start), text.size());
            fields.push_back(text.substr(start, end - start));
            if (end == text.size()) {
                break;
            }
            start = end + 1;
        }

        auto with = ParseDriverActionDataText(text, true);
        auto without = ParseDriverActionDataText(text, false);
        ASSERT_EQ(with.has_value(), without.has_value());
        if (!with) {
            ASSERT_FALSE(fields.size() >= 5 && !fields[3].empty() && !fields[4].empty());
            continue;
        }
        ASSERT_GE(fields.size(), 5u);
        ASSERT_EQ(with->componentId.find(S), std::wstring::npos);
        ASSERT_EQ(with->infPath.find(S), std::wstring::npos);
        ASSERT_FALSE(without->serviceName);
        ASSERT_EQ(with->infPath, without->infPath);
        ASSERT_EQ(with->componentId, without->componentId);
        ASSERT_EQ(with->flags, without->flags);
        ASSERT_EQ(with->progressTicks, without->progressTicks);
        if (fields[3].empty() || fields[4].empty()) {
            continue;
        }
        std::wstring_view name = fields[1];
        if (auto bar = name.find(L'|'); bar != name.npos) {
            name.remove_prefix(bar + 1);
        }
        ASSERT_EQ(with->infPath, std::wstring(fields[0]) + std::wstring(name));
        ASSERT_EQ(with->componentId, fields[2]);
        ASSERT_EQ(with->flags, ParseLeadingLong(fields[3]));
        ASSERT_EQ(with->progressTicks, ParseLeadingLong(fields[4]));
        if (fields.size() > 5) {
            ASSERT_EQ(with->serviceName, text.substr(fields[5].data() - text.data()));
        } else {
            ASSERT_FALSE(with->serviceName);
        }
    }
}

} // namespace
} // namespace setuputils
