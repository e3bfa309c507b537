// ProcessRegReaders in costed installer sessions: the temporary Registry rows
// it adds, read back from the active database, and the messages it posts.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "frame/session.h"
#include "library.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using Rows = std::vector<std::vector<std::wstring>>;

const std::wstring kKey = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\";
const std::vector<std::wstring> kSeedRow = {L"2", L"seed", L"Software\\Seed", L"", L"", L"On"};

Rows Sorted(Rows rows) {
    std::sort(rows.begin(), rows.end());
    return rows;
}

class ProcessRegReadersTest : public ::testing::Test {
protected:
    // Component "On" is installed locally, "Off" not at all. `readers` are
    // RegReaders rows (Type, Name, Parameter, Value, Component_, Condition,
    // ListProperty), or no such table. Registry holds one row, the first.
    UINT Run(const std::optional<Rows>& readers) {
        package_.AddStandardTables();
        package_.AddDirectory(L"READERDIR", L"readers:.");
        package_.SetProperty(L"READERDIR", MakeTempFolder(L"rdr"));
        package_.AddFileComponent(L"On", L"READERDIR", L"on.dll");
        package_.AddFileComponent(L"Off", L"READERDIR", L"off.dll", L"Disabled", 0);
        package_.Insert(L"Property", L"`Property`, `Value`",
                        {{L"ABLIST", L"A, B"}, {L"TRAILLIST", L"A,"}, {L"TWICELIST", L"A,A"}});
        package_.Insert(L"Registry", L"`Root`, `Registry`, `Key`, `Component_`",
                        {{L"#2", kSeedRow[1], kSeedRow[2], kSeedRow[5]}});
        if (readers) {
            package_.AddRegReadersTable();
            package_.Insert(
                L"RegReaders",
                L"`Type`, `Name`, `Parameter`, `Value`, `Component_`, `Condition`, `ListProperty`", *readers);
        }
        package_.Commit();
        session_ = std::make_unique<TestSession>(package_);
        session_->Cost();
        messages_.Clear();
        return library_.Action("ProcessRegReaders")(session_->get());
    }

    Rows RegistryRows() {
        return Sorted(session_->Rows(
            L"SELECT `Root`, `Registry`, `Key`, `Name`, `Value`, `Component_` FROM `Registry`"));
    }

    Rows Errors() const { return messages_.FieldsOf(INSTALLMESSAGE_ERROR); }

    SetupUtilsLibrary library_;
    TestPackage package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

// Not shown here: a list property whose second read fails ("MsiGetProperty()
// fail"); the engine answers both reads from the same stored value.
TEST_F(ProcessRegReadersTest, AddsARowPerValueOfTheRowsThatApply) {
    const Rows readers = {
        {L"KeyCarriers", L"Flash", L"-", L"flash.dll", L"On", L"1", L""},
        {L"KeyCarriers", L"Flash", L"Plugin", L"plug.dll", L"On", L"VersionNT64", L"ABLIST"},
        {L"Random", L"Bio", L"Level", L"3", L"On", L"NOT NOSUCHPROP", L"TRAILLIST"},
        {L"Random", L"Bio", L"Unset", L"u", L"On", L"1", L"NOSUCHLIST"},
        // Left out silently: condition false, component not installed or
        // unknown, and the smart-card type registration's own rows.
        {L"KeyCarriers", L"False", L"P", L"v", L"On", L"NOSUCHPROP", L""},
        {L"KeyCarriers", L"NotLocal", L"P", L"v", L"Off", L"1", L""},
        {L"KeyCarriers", L"Unknown", L"P", L"v", L"NoSuchComponent", L"1", L""},
        {L"KeyCarriers", L"Card", L"CalaisRegistered", L"v", L"On", L"1", L""},
        // Left out and reported: conditions the installer cannot evaluate.
        {L"KeyCarriers", L"EmptyCondition", L"P", L"v", L"On", L"", L""},
        {L"KeyCarriers", L"BadCondition", L"P", L"v", L"On", L"(((", L""},
    };

    EXPECT_EQ(Run(readers), 0u);

    const std::wstring flash = kKey + L"KeyCarriers\\Flash", bio = kKey + L"Random\\Bio";
    EXPECT_EQ(RegistryRows(),
              Sorted(Rows{kSeedRow,
                          {L"2", flash + L"\\", flash, L"", L"flash.dll", L"On"},
                          {L"2", flash + L"\\A\\Plugin", flash + L"\\A", L"Plugin", L"plug.dll", L"On"},
                          {L"2", flash + L"\\ B\\Plugin", flash + L"\\ B", L"Plugin", L"plug.dll", L"On"},
                          {L"2", bio + L"\\A\\Level", bio + L"\\A", L"Level", L"3", L"On"},
                          {L"2", bio + L"\\\\Level", bio + L"\\", L"Level", L"3", L"On"},
                          {L"2", bio + L"\\\\Unset", bio + L"\\", L"Unset", L"u", L"On"}}));
    const std::vector<std::wstring> invalid = {L"666", L"ProcessRegReaders",
                                               L"Invalid Condition in RegReader Table", L"13"};
    EXPECT_EQ(Errors(), (Rows{invalid, invalid}));
    // Each row is logged as its fields, each followed by ";".
    std::vector<std::wstring> lines;
    for (const auto& row : readers) {
        lines.emplace_back();
        for (const auto& field : row) {
            lines.back() += field + L";";
        }
    }
    std::vector<std::wstring> logged = messages_.InfoTexts();
    std::sort(lines.begin(), lines.end());
    std::sort(logged.begin(), logged.end());
    EXPECT_EQ(logged, lines);
}

TEST_F(ProcessRegReadersTest, FailedAdditionIsReportedAndKeepsTheEarlierRow) {
    EXPECT_EQ(Run(Rows{{L"KeyDevices", L"Twice", L"P", L"v", L"On", L"1", L"TWICELIST"}}), 0u);

    const std::wstring key = kKey + L"KeyDevices\\Twice\\A";
    EXPECT_EQ(RegistryRows(), Sorted(Rows{kSeedRow, {L"2", key + L"\\P", key, L"P", L"v", L"On"}}));
    const Rows errors = Errors();
    ASSERT_EQ(errors.size(), 2u);
    const std::wstring code = errors[0][3];
    EXPECT_NE(code, L"0");
    EXPECT_EQ(errors, (Rows{{L"666", L"WriteToTable", L"WriteToRegistry()", code},
                            {L"666", L"PrepareToWrite", L"PrepareToWrite() fail", code}}));
}

TEST_F(ProcessRegReadersTest, WithoutRegReadersTableFailsWithTheLastError) {
    const UINT result = Run(std::nullopt);

    EXPECT_EQ(Errors(),
              (Rows{{L"666", L"ProcessRegReaders", L"ProcessRegReaders fail", std::to_wstring(result)}}));
    EXPECT_EQ(RegistryRows(), Rows{kSeedRow});
    // Without a session there is no database either; the thread's last error is the result.
    SetLastError(12345);
    EXPECT_EQ(library_.Action("ProcessRegReaders")(0), 12345u);
}

} // namespace
} // namespace harness
