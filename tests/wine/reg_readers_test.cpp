// ProcessRegReaders in costed installer sessions: the temporary Registry rows
// it adds, read back from the active database, and the messages it posts.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <optional>

#include "library.h"
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
    // On a new package whose component "On" is installed locally, "Off" not at all, whose Registry
    // table holds one row and whose RegReaders rows are `readers` (Type, Name, Parameter, Value,
    // Component_, Condition, ListProperty), or that has no such table.
    UINT Run(const std::optional<Rows>& readers) {
        session_.reset();
        package_ = std::make_unique<TestPackage>();
        package_->AddStandardTables();
        package_->AddDirectory(L"READERDIR", L"readers:.");
        package_->SetProperty(L"READERDIR", MakeTempFolder(L"rdr"));
        package_->AddFileComponent(L"On", L"READERDIR", L"on.dll");
        package_->AddFileComponent(L"Off", L"READERDIR", L"off.dll", L"Disabled", 0);
        package_->Insert(L"Property", L"`Property`, `Value`", {{L"ABLIST", L"A, B"}, {L"TWICELIST", L"A,A"}});
        package_->Insert(L"Registry", L"`Root`, `Registry`, `Key`, `Component_`",
                         {{L"#2", kSeedRow[1], kSeedRow[2], kSeedRow[5]}});
        if (readers) {
            package_->AddRegReadersTable();
            package_->Insert(
                L"RegReaders",
                L"`Type`, `Name`, `Parameter`, `Value`, `Component_`, `Condition`, `ListProperty`", *readers);
        }
        package_->Commit();
        session_ = std::make_unique<TestSession>(*package_);
        session_->Cost();
        messages_.Clear();
        return library_.Action("ProcessRegReaders")(session_->get());
    }

    Rows RegistryRows() {
        return Sorted(session_->Rows(
            L"SELECT `Root`, `Registry`, `Key`, `Name`, `Value`, `Component_` FROM `Registry`"));
    }

    SetupUtilsLibrary library_;
    std::unique_ptr<TestPackage> package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

// Not shown here: a list property whose second read fails ("MsiGetProperty()
// fail"); the engine answers both reads from the same stored value.
TEST_F(ProcessRegReadersTest, AddsARowPerValueOfTheRowsThatApply) {
    const Rows readers = {
        {L"KeyCarriers", L"Flash", L"-", L"flash.dll", L"On", L"1", L""},
        {L"KeyCarriers", L"Flash", L"Plugin", L"plug.dll", L"On", L"VersionNT64", L"ABLIST"},
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
        // The second row of the same identifier fails, is reported, and the walk goes on.
        {L"KeyDevices", L"Twice", L"P", L"v", L"On", L"1", L"TWICELIST"},
    };
    EXPECT_EQ(Run(readers), 0u);

    const std::wstring flash = kKey + L"KeyCarriers\\Flash", bio = kKey + L"Random\\Bio";
    const std::wstring twice = kKey + L"KeyDevices\\Twice\\A";
    EXPECT_EQ(RegistryRows(),
              Sorted(Rows{kSeedRow,
                          {L"2", flash + L"\\", flash, L"", L"flash.dll", L"On"},
                          {L"2", flash + L"\\A\\Plugin", flash + L"\\A", L"Plugin", L"plug.dll", L"On"},
                          {L"2", flash + L"\\ B\\Plugin", flash + L"\\ B", L"Plugin", L"plug.dll", L"On"},
                          {L"2", bio + L"\\\\Unset", bio + L"\\", L"Unset", L"u", L"On"},
                          {L"2", twice + L"\\P", twice, L"P", L"v", L"On"}}));
    const Rows errors = messages_.FieldsOf(INSTALLMESSAGE_ERROR);
    ASSERT_EQ(errors.size(), 4u);
    const std::wstring code = errors[2][3];
    EXPECT_NE(code, L"0");
    const std::vector<std::wstring> invalid = {L"666", L"ProcessRegReaders",
                                               L"Invalid Condition in RegReader Table", L"13"};
    EXPECT_EQ(errors, (Rows{invalid,
                            invalid,
                            {L"666", L"WriteToTable", L"WriteToRegistry()", code},
                            {L"666", L"PrepareToWrite", L"PrepareToWrite() fail", code}}));
    // Each row is logged as its fields, each followed by ";".
    std::vector<std::wstring> lines;
    for (const auto& row : readers) {
        lines.push_back(
            std::accumulate(row.begin(), row.end(), std::wstring(),
                            [](const std::wstring& line, const auto& field) { return line + field + L";"; }));
    }
    EXPECT_EQ(Sorted(messages_.InfoTexts()), Sorted(lines));

    // Without the table (or a session) the action fails with the thread's last error.
    const UINT result = Run(std::nullopt);
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR),
              (Rows{{L"666", L"ProcessRegReaders", L"ProcessRegReaders fail", std::to_wstring(result)}}));
    EXPECT_EQ(RegistryRows(), Rows{kSeedRow});
    SetLastError(12345);
    EXPECT_EQ(library_.Action("ProcessRegReaders")(0), 12345u);
}

} // namespace
} // namespace harness
