// The session services against an in-process installer session.
#include <gtest/gtest.h>

#include <string>

#include "frame/session.h"
#include "action_session.h"

namespace setuputils {
namespace {

class SessionTest : public ::testing::Test {
protected:
    // The one message of `type` posted since the last Clear().
    harness::RecordedMessage Only(UINT type) {
        EXPECT_EQ(messages_.all().size(), 1u);
        auto selected = messages_.OfType(type);
        EXPECT_EQ(selected.size(), 1u);
        harness::RecordedMessage message = selected.empty() ? harness::RecordedMessage{} : selected.front();
        messages_.Clear();
        return message;
    }

    harness::ActionSession session_;
    harness::MessageRecorder& messages_ = session_.messages();
};

// An unset or empty property leaves the caller's value alone. Asked for the
// size with a zero-length buffer, Wine's engine answers ERROR_MORE_DATA with a
// length of 0 for an empty value (there is no room for the terminator).
TEST_F(SessionTest, PropertiesRoundTripWholeAndEmptyOnesLeaveTheValueAlone) {
    std::wstring value;
    std::wstring longValue(5000, L'x');
    longValue.back() = L'!';
    ASSERT_EQ(SetProperty(session_.get(), L"LONGVALUE", longValue.c_str()), 0u);
    EXPECT_EQ(GetPropertyString(session_.get(), L"LONGVALUE", value), 0u);
    EXPECT_EQ(value, longValue);
    // A shorter value read into the same string leaves nothing of the longer one behind.
    ASSERT_EQ(SetProperty(session_.get(), L"LONGVALUE", L"short"), 0u);
    EXPECT_EQ(GetPropertyString(session_.get(), L"LONGVALUE", value), 0u);
    EXPECT_EQ(value, L"short");

    EXPECT_NE(GetPropertyString(0, L"ProductName", value), 0u);
    EXPECT_EQ(GetPropertyString(session_.get(), L"NEVER_SET", value), 0u);
    ASSERT_EQ(SetProperty(session_.get(), L"LONGVALUE", L""), 0u);
    EXPECT_EQ(GetPropertyString(session_.get(), L"LONGVALUE", value), 0u);
    EXPECT_EQ(value, L"short");
}

TEST_F(SessionTest, RecordFieldsReadAsText) {
    MsiHandle record(MsiCreateRecord(5));
    const std::wstring text(300, L'r');
    MsiRecordSetStringW(record.get(), 1, text.c_str());
    // The data size of an integer field is 4, whatever the length of its text.
    MsiRecordSetInteger(record.get(), 2, 1234567);
    MsiRecordSetInteger(record.get(), 3, -2000000000);
    MsiRecordSetInteger(record.get(), 4, 5);
    ASSERT_EQ(MsiRecordDataSize(record.get(), 2), 4u);
    const std::wstring expected[] = {text, L"1234567", L"-2000000000", L"5", L""};
    for (UINT field = 1; field <= 5; ++field) {
        std::wstring value = L"stale";
        EXPECT_EQ(GetRecordString(record.get(), field, value), 0u) << field;
        EXPECT_EQ(value, expected[field - 1]) << field;
    }
}

TEST_F(SessionTest, ViewsOpenOnTheActiveDatabaseAndCloseThemselves) {
    MSIHANDLE closed = 0;
    {
        View view;
        ASSERT_EQ(OpenView(session_.get(), L"SELECT `Message` FROM `Error` WHERE `Error` = 666", view), 0u);
        ASSERT_EQ(MsiViewExecute(view.get(), 0), 0u);
        MsiHandle record;
        ASSERT_EQ(MsiViewFetch(view.get(), record.put()), 0u);
        std::wstring message;
        EXPECT_EQ(GetRecordString(record.get(), 1, message), 0u);
        EXPECT_EQ(message, L"Action [2]: [3] ([4]).");
        closed = view.get();
    }
    // Released with the View: the installer no longer knows the handle.
    MsiHandle columns;
    EXPECT_EQ(MsiViewGetColumnInfo(closed, MSICOLINFO_NAMES, columns.put()),
              static_cast<UINT>(ERROR_INVALID_HANDLE));

    View view;
    EXPECT_NE(OpenView(session_.get(), L"SELECT * FROM `NoSuchTable`", view), 0u);
    EXPECT_EQ(view.get(), 0u);
}

bool EndsWith(const std::wstring& text, const std::wstring& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// When field 1 is an integer the installer puts its header for the message type
// in front of field 0 before the handler sees the record (Wine: "Info [1]." and
// "{{Error [1]. }}"), and fills an empty field 0 of an error from the Error table.
TEST_F(SessionTest, ReportsPostTheirFieldsInOrder) {
    ReportInfo(session_.get(), L"Copied [1] files", 7);
    auto info = Only(kMessageInfo);
    ASSERT_EQ(info.fieldCount(), 1u);
    EXPECT_TRUE(EndsWith(info.fields[0], L"Copied [1] files")) << info.fields[0];
    EXPECT_EQ(info.fields[1], L"7");
    EXPECT_TRUE(EndsWith(info.text, L"Copied 7 files")) << info.text;

    ReportInfo(session_.get(), L"Nothing to copy", 7);
    EXPECT_EQ(Only(kMessageInfo).fields, (std::vector<std::wstring>{L"Nothing to copy", L""}));

    // ReportProgress is seen in the driver actions' tests.
    ReportActionError(session_.get(), L"KSInstall", L"drv.inf", 87);
    auto action = Only(kMessageError);
    ASSERT_EQ(action.fieldCount(), 4u);
    EXPECT_EQ(std::vector<std::wstring>(action.fields.begin() + 1, action.fields.end()),
              (std::vector<std::wstring>{L"666", L"KSInstall", L"drv.inf", L"87"}));
    const std::wstring message666 = L"Action [2]: [3] ([4]).";
    ASSERT_TRUE(EndsWith(action.fields[0], message666)) << action.fields[0];
    const std::wstring header = action.fields[0].substr(0, action.fields[0].size() - message666.size());

    // 1923 has no row in this package's Error table: only the header remains.
    ReportServiceError(session_.get(), 1073, L"nvdrv");
    auto service = Only(kMessageError);
    EXPECT_EQ(service.fields, (std::vector<std::wstring>{header, L"1923", L"nvdrv", L"1073"}));
}

// The parsing itself is the native tests'; here the data is read from the property.
TEST_F(SessionTest, DriverActionDataComesFromCustomActionData) {
    EXPECT_FALSE(ParseDriverActionData(session_.get(), false).has_value());
    const std::wstring data = L"C:\\D\\\x0001SHORT~1.INF|long.inf\x0001{ID}\x0001"
                              L"5\x0001"
                              L"3000000\x0001nvdrv";
    ASSERT_EQ(SetProperty(session_.get(), L"CustomActionData", data.c_str()), 0u);
    const auto parsed = ParseDriverActionData(session_.get(), true);
    ASSERT_TRUE(parsed.has_value());
    EXPECT_EQ(parsed->infPath, L"C:\\D\\long.inf");
    EXPECT_EQ(parsed->componentId, L"{ID}");
    EXPECT_EQ(parsed->serviceName, std::optional<std::wstring>(L"nvdrv"));
    EXPECT_FALSE(ParseDriverActionData(session_.get(), false)->serviceName.has_value());
}

} // namespace
} // namespace setuputils
