// ProcessRegReaders in costed installer sessions: the temporary Registry rows
// it adds, read back from the active database, and the messages it posts.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "frame/session.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using Rows = std::vector<std::vector<std::wstring>>;

const std::wstring kKey = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\";
const std::vector<std::wstring> kSeedRow = {L"2", L"seed", L"Software\\Seed", L"", L"", L"On"};

template <typename List>
List Sorted(List list) {
    std::sort(list.begin(), list.end());
    return list;
}

class ProcessRegReadersTest : public ::testing::Test {
protected:
    // Component "On" is installed locally, "Off" not at all. `readers` are
    // RegReaders rows (Type, Name, Parameter, Value, Component_, Condition,
    // ListProperty), or no such table; `seed` puts a row into Registry.
    UINT Run(const std::optional<Rows>& readers, bool seed = true) {
        package_.AddStandardTables();
        package_.AddDirectory(L"READERDIR", L"readers:.");
        package_.SetProperty(L"READERDIR", MakeTempFolder(L"rdr"));
        package_.AddFileComponent(L"On", L"READERDIR", L"on.dll");
        package_.AddFileComponent(L"Off", L"READERDIR", L"off.dll", L"Disabled", 0);
        package_.SetProperty(L"ABLIST", L"A, B");
        package_.SetProperty(L"TRAILLIST", L"A,");
        package_.SetProperty(L"TWICELIST", L"A,A");
        if (seed) {
            package_.Sql(
                L"INSERT INTO `Registry` (`Root`, `Registry`, `Key`, `Component_`) VALUES (2, ?, ?, ?)",
                {kSeedRow[1], kSeedRow[2], kSeedRow[5]});
        }
        if (readers) {
            package_.Sql(L"CREATE TABLE `RegReaders` (`Type` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL, "
                         L"`Parameter` CHAR(72) NOT NULL, `Value` CHAR(0) NOT NULL, `Component_` CHAR(72) "
                         L"NOT NULL, `Condition` CHAR(255), `ListProperty` CHAR(72) "
                         L"PRIMARY KEY `Type`, `Name`, `Parameter`, `Value`)");
            for (const auto& row : *readers) {
                package_.Sql(L"INSERT INTO `RegReaders` (`Type`, `Name`, `Parameter`, `Value`, `Component_`, "
                             L"`Condition`, `ListProperty`) VALUES (?, ?, ?, ?, ?, ?, ?)",
                             row);
            }
        }
        package_.Commit();
        session_ = std::make_unique<TestSession>(package_);
        session_->Cost();
        messages_.Clear();
        return library_.Action("ProcessRegReaders")(session_->get());
    }

    Rows RegistryRows() {
        MsiHandle database(MsiGetActiveDatabase(session_->get()));
        setuputils::View view;
        MsiDatabaseOpenViewW(
            database.get(),
            L"SELECT `Root`, `Registry`, `Key`, `Name`, `Value`, `Component_` FROM `Registry`", view.put());
        MsiViewExecute(view.get(), 0);
        Rows rows;
        MsiHandle record;
        while (MsiViewFetch(view.get(), record.put()) == ERROR_SUCCESS) {
            rows.emplace_back(6);
            for (UINT field = 1; field <= 6; ++field) {
                setuputils::GetRecordString(record.get(), field, rows.back()[field - 1]);
            }
        }
        return Sorted(rows);
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
        {L"KeyCarriers", L"Flash", L"Plugin", L"#5", L"On", L"VersionNT64", L"ABLIST"},
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
                          {L"2", flash + L"\\A\\Plugin", flash + L"\\A", L"Plugin", L"#5", L"On"},
                          {L"2", flash + L"\\ B\\Plugin", flash + L"\\ B", L"Plugin", L"#5", L"On"},
                          {L"2", bio + L"\\A\\Level", bio + L"\\A", L"Level", L"3", L"On"},
                          {L"2", bio + L"\\\\Level", bio + L"\\", L"Level", L"3", L"On"},
                          {L"2", bio + L"\\\\Unset", bio + L"\\", L"Unset", L"u", L"On"}}));
    const std::vector<std::wstring> invalid = {L"666", L"ProcessRegReaders",
                                               L"Invalid Condition in RegReader Table", L"13"};
    EXPECT_EQ(Errors(), (Rows{invalid, invalid}));
    std::vector<std::wstring> lines;
    for (const auto& row : readers) {
        lines.emplace_back();
        for (const auto& field : row) {
            lines.back() += field + L";";
        }
    }
    EXPECT_EQ(Sorted(messages_.InfoTexts()), Sorted(lines));
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

// The writer makes each new row from the table's first one: without one,
// nothing is added and nothing reported.
TEST_F(ProcessRegReadersTest, EmptyRegistryTableGetsNothingSilently) {
    EXPECT_EQ(Run(Rows{{L"KeyCarriers", L"Flash", L"-", L"flash.dll", L"On", L"1", L"ABLIST"}}, false), 0u);
    EXPECT_EQ(RegistryRows(), Rows{});
    EXPECT_EQ(Errors(), Rows{});
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

// Installed and removed for real: the installer writes the values of the
// temporary rows, but at removal those rows no longer exist, so only what the
// package's own Registry rows name goes; the reader values stay behind.
TEST(ProcessRegReadersInstallation, RemovalLeavesTheReaderValuesWithoutARowOfThePackage) {
    const std::wstring carrier = kKey + L"KeyCarriers\\FAT12\\Default";
    TestPackage package;
    package.AddStandardTables();
    package.AddRegistryComponent(L"nvcsp64", true);
    package.AddBinary(L"SetupUtils", SetupUtilsLibrary::Path());
    package.Sql(L"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) "
                L"VALUES ('ProcessRegReaders', 1, 'SetupUtils', 'ProcessRegReaders')");
    package.Sql(
        L"INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES ('ProcessRegReaders', 1550)");
    package.Sql(L"INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Value`, `Component_`) "
                L"VALUES ('own', 2, 'SOFTWARE\\SetupUtilsTests\\Own', 'On', '1', 'nvcsp64')");
    package.AddRegReadersTable();
    package.Sql(L"INSERT INTO `RegReaders` (`Type`, `Name`, `Parameter`, `Value`, `Component_`, `Condition`) "
                L"VALUES (?, ?, ?, ?, ?, ?)",
                {L"KeyCarriers", L"FAT12\\Default", L"DLL", L"nvfat12.dll", L"nvcsp64", L"1"});
    package.Commit();
    package.Close();
    MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);

    ASSERT_EQ(MsiInstallProductW(package.path().c_str(), L""), 0u);
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, carrier, L"DLL"), L"nvfat12.dll");
    ASSERT_EQ(MsiConfigureProductW(package.productCode().c_str(), INSTALLLEVEL_DEFAULT, INSTALLSTATE_ABSENT),
              0u);
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, L"SOFTWARE\\SetupUtilsTests\\Own", L"On"), std::nullopt);
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, carrier, L"DLL"), L"nvfat12.dll");
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane");
}

} // namespace
} // namespace harness
