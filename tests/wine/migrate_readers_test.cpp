// MigrateReaders: the properties it sets from what an earlier installation left in the registry.
#include <gtest/gtest.h>

#include <optional>

#include "import_redirect.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using Rows = std::vector<std::vector<std::wstring>>;

const std::wstring kKey = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\";

using RecordGetString = UINT(WINAPI*)(MSIHANDLE, UINT, LPWSTR, LPDWORD);
const ImportRedirect* g_recordGetString = nullptr;

UINT WINAPI FailConditionRead(MSIHANDLE record, UINT field, LPWSTR text, LPDWORD size) {
    return field == 3 ? ERROR_INVALID_PARAMETER
                      : g_recordGetString->original<RecordGetString>()(record, field, text, size);
}

class MigrateReadersTest : public ::testing::Test {
protected:
    ~MigrateReadersTest() override {
        for (const wchar_t* type : {L"KeyCarriers", L"KeyDevices", L"Random", L"Readers"}) {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kKey + type);
        }
    }

    // On a new package with `readers` (Type, Name, Condition) or no RegReaders; `preset` are "pkg".
    UINT Run(const std::optional<Rows>& readers, const std::vector<std::wstring>& preset = {}) {
        session_.reset();
        package_ = std::make_unique<TestPackage>();
        package_->AddStandardTables();
        if (readers) {
            package_->Sql(L"CREATE TABLE `RegReaders` (`Type` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL, "
                          L"`Condition` CHAR(255) PRIMARY KEY `Type`, `Name`)");
            package_->Insert(L"RegReaders", L"`Type`, `Name`, `Condition`", *readers);
        }
        package_->Commit();
        session_ = std::make_unique<TestSession>(*package_);
        for (const auto& name : preset) {
            session_->SetProperty(name, L"pkg");
        }
        messages_.Clear();
        return library_.Action("MigrateReaders")(session_->get());
    }

    SetupUtilsLibrary library_;
    std::unique_ptr<TestPackage> package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

TEST_F(MigrateReadersTest, SetsFlagsSubkeyListsAndTheKeyStorePathOfExistingKeys) {
    // Nothing to read is no failure; without a session the installer's answer to the view is kept.
    EXPECT_EQ(Run(std::nullopt), 0u);
    EXPECT_TRUE(messages_.all().empty());
    EXPECT_EQ(library_.Action("MigrateReaders")(0), static_cast<UINT>(ERROR_INVALID_HANDLE));

    const Rows readers = {
        {L"KeyCarriers", L"X\\Default", L"PROPX"},
        {L"KeyDevices", L"Gone\\Default", L"PROPGONE"}, // no key: kept
        {L"Readers", L"R\\Default", L"PROPR"},          // not a type looked at
        {L"Random", L"Floppy", L"REGFLOPPY"},
        {L"KeyDevices", L"DSRF\\Default", L"REGDSRF"},
    };
    // Subkeys are enumerated in name order; "PNP FAT12" is left out.
    for (const wchar_t* path : {L"KeyCarriers\\X\\Default", L"Readers\\R\\Default", L"Random\\Floppy\\A",
                                L"Random\\Floppy\\PNP FAT12", L"Random\\Floppy\\Z"}) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + path, L"", L"x");
    }
    WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + L"KeyDevices\\DSRF\\Default", L"/db1/kis_1",
                        L"D:\\keys\\db1\\kis_1");
    EXPECT_EQ(Run(readers, {L"PROPGONE", L"PROPR"}), 0u);
    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"PROPX", L"1"},       {L"PROPGONE", L"pkg"},     {L"PROPR", L"pkg"},
        {L"REGFLOPPY", L"A,Z"}, {L"REGDSRF", L"D:\\keys"},
    };
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(session_->Property(name), value) << name;
    }
    EXPECT_TRUE(messages_.all().empty());

    // Wine's engine cannot make a text read of this action's DISTINCT query fail (a stream field
    // crashes the fetch), so the library's import of MsiRecordGetStringW fails the Condition read.
    const ImportRedirect failingRead(GetModuleHandleW(L"setuputils.dll"), "msi.dll", "MsiRecordGetStringW",
                                     reinterpret_cast<void*>(&FailConditionRead));
    g_recordGetString = &failingRead;
    EXPECT_EQ(Run(Rows{readers[0]}), static_cast<UINT>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR),
              (Rows{{L"666", L"MigrateReaders", L"RecordGetString() fail", L"87"},
                    {L"666", L"MigrateReaders", L"GetActiveDatabase() fail", L"87"}}));
    EXPECT_EQ(session_->Property(L"PROPX"), L"");
}

} // namespace
} // namespace harness
