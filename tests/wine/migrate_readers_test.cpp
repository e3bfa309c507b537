// MigrateReaders in installer sessions: the properties it sets from what an
// earlier installation left below the provider's configuration key.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "import_redirect.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using Rows = std::vector<std::vector<std::wstring>>;

const std::wstring kKey = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\";

class MigrateReadersTest : public ::testing::Test {
protected:
    ~MigrateReadersTest() override { ClearKeys(); }

    static void ClearKeys() {
        for (const wchar_t* type : {L"KeyCarriers", L"KeyDevices", L"Random", L"Readers"}) {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kKey + type);
        }
    }
    static void AddKey(const std::wstring& path, const std::wstring& name = L"",
                       const std::wstring& value = L"x") {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + path, name, value);
    }

    // A package whose RegReaders rows are Type, Name, Condition.
    void NewPackage(const Rows& readers) {
        session_.reset();
        package_ = std::make_unique<TestPackage>();
        package_->AddStandardTables();
        package_->Sql(L"CREATE TABLE `RegReaders` (`Type` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL, "
                      L"`Condition` CHAR(255) PRIMARY KEY `Type`, `Name`)");
        for (const auto& row : readers) {
            package_->Sql(L"INSERT INTO `RegReaders` (`Type`, `Name`, `Condition`) VALUES (?, ?, ?)", row);
        }
    }

    // Runs the action in a session where the properties `preset` are "pkg".
    UINT Run(const std::vector<std::wstring>& preset = {}) {
        package_->Commit();
        session_ = std::make_unique<TestSession>(*package_);
        for (const auto& name : preset) {
            session_->SetProperty(name, L"pkg");
        }
        messages_.Clear();
        return library_.Action("MigrateReaders")(session_->get());
    }

    Rows Errors() const { return messages_.FieldsOf(INSTALLMESSAGE_ERROR); }

    SetupUtilsLibrary library_;
    std::unique_ptr<TestPackage> package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

TEST_F(MigrateReadersTest, SetsFlagsAndSubkeyListsOfExistingKeys) {
    NewPackage({
        {L"KeyCarriers", L"X\\Default", L"PROPX"},
        {L"KeyCarriers", L"Y\\Default", L"PROP Y"},
        {L"KeyCarriers", L"Plain", L"PROPPLAIN"},
        {L"KeyDevices", L"Gone\\Default", L"PROPGONE"},
        {L"Readers", L"R\\Default", L"PROPR"},
        {L"Random", L"Floppy", L"REGFLOPPY"},
        {L"KeyDevices", L"Fat", L"REGDS1410E"},
    });
    // Subkeys are enumerated in name order.
    for (const wchar_t* path : {L"KeyCarriers\\X\\Default", L"KeyCarriers\\Y\\Default", L"KeyCarriers\\Plain",
                                L"Readers\\R\\Default", L"Random\\Floppy\\A", L"Random\\Floppy\\PNP FAT12",
                                L"Random\\Floppy\\Z", L"KeyDevices\\Fat\\PNP FAT12", L"KeyDevices\\Fat\\Q"}) {
        AddKey(path);
    }

    EXPECT_EQ(Run({L"PROP Y", L"PROPPLAIN", L"PROPGONE", L"PROPR"}), 0u);

    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"PROPX", L"1"},   {L"PROP Y", L"pkg"},    {L"PROPPLAIN", L"pkg"}, {L"PROPGONE", L"pkg"},
        {L"PROPR", L"pkg"}, {L"REGFLOPPY", L"A,Z"}, {L"REGDS1410E", L",Q"},
    };
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(session_->Property(name), value) << name;
    }
    EXPECT_TRUE(messages_.all().empty());
}

TEST_F(MigrateReadersTest, KeyStorePathIsCutBeforeTheStoreFolder) {
    const struct {
        const wchar_t* name;
        const wchar_t* stored; // null: no value
        const wchar_t* expected;
    } cases[] = {
        {L"DSRF\\Default", L"D:\\keys\\db1\\kis_1", L"D:\\keys"},
        {L"DSRF\\Default", L"D:\\keys", L""},
        {L"DSRF\\Default", nullptr, L""},
        {L"DSRF", L"D:\\keys\\db1\\kis_1", L"pkg"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.name << " " << (c.stored ? c.stored : L"(none)"));
        ClearKeys();
        AddKey(std::wstring(L"KeyDevices\\") + c.name);
        if (c.stored != nullptr) {
            AddKey(std::wstring(L"KeyDevices\\") + c.name, L"/db1/kis_1", c.stored);
        }
        NewPackage({{L"KeyDevices", c.name, L"REGDSRF"}});
        EXPECT_EQ(Run({L"REGDSRF"}), 0u);
        EXPECT_EQ(session_->Property(L"REGDSRF"), c.expected);
    }
}

// Points setuputils.dll's import of `from` at `to`.
using RecordGetString = UINT(WINAPI*)(MSIHANDLE, UINT, LPWSTR, LPDWORD);
const ImportRedirect* g_recordGetString = nullptr;

UINT WINAPI FailConditionRead(MSIHANDLE record, UINT field, LPWSTR text, LPDWORD size) {
    return field == 3 ? ERROR_INVALID_PARAMETER
                      : g_recordGetString->original<RecordGetString>()(record, field, text, size);
}

// Wine's engine cannot produce a record whose text read fails through this
// action's DISTINCT query: the only such field, a stream, crashes the fetch
// itself. The library's import of MsiRecordGetStringW is redirected instead,
// so that reading the Condition field fails as the engine would report it.
TEST_F(MigrateReadersTest, UnreadableRecordIsReportedTwiceAndReturned) {
    NewPackage({{L"KeyCarriers", L"X\\Default", L"PROPX"}});
    AddKey(L"KeyCarriers\\X\\Default");
    UINT status = 0;
    {
        const ImportRedirect failingRead(GetModuleHandleW(L"setuputils.dll"), "msi.dll",
                                         "MsiRecordGetStringW", reinterpret_cast<void*>(&FailConditionRead));
        g_recordGetString = &failingRead;
        status = Run();
    }

    EXPECT_EQ(status, static_cast<UINT>(ERROR_INVALID_PARAMETER));
    EXPECT_EQ(Errors(), (Rows{{L"666", L"MigrateReaders", L"RecordGetString() fail", L"87"},
                              {L"666", L"MigrateReaders", L"GetActiveDatabase() fail", L"87"}}));
    EXPECT_EQ(session_->Property(L"PROPX"), L"");
}

TEST_F(MigrateReadersTest, NothingToReadIsNoFailure) {
    package_ = std::make_unique<TestPackage>();
    package_->AddStandardTables();
    EXPECT_EQ(Run(), 0u);
    EXPECT_TRUE(messages_.all().empty());
    // No session, no database: the installer's answer to the view is kept.
    EXPECT_EQ(library_.Action("MigrateReaders")(0), static_cast<UINT>(ERROR_INVALID_HANDLE));
}

} // namespace
} // namespace harness
