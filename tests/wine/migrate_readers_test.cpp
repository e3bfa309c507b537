// MigrateReaders: the properties it sets from what an earlier installation left in the registry.
#include <gtest/gtest.h>

#include <optional>

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
    ~MigrateReadersTest() override {
        for (const wchar_t* type : {L"KeyCarriers", L"KeyDevices", L"Random"}) {
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
    // Nothing to read is no failure.
    EXPECT_EQ(Run(std::nullopt), 0u);

    const Rows readers = {
        {L"KeyCarriers", L"X\\Default", L"PROPX"},
        {L"KeyDevices", L"Gone\\Default", L"PROPGONE"}, // no key: kept
        {L"Random", L"Floppy", L"REGFLOPPY"},
        {L"KeyDevices", L"DSRF\\Default", L"REGDSRF"},
    };
    // Subkeys are enumerated in name order; "PNP FAT12" is left out.
    for (const wchar_t* path : {L"KeyCarriers\\X\\Default", L"Random\\Floppy\\A",
                                L"Random\\Floppy\\PNP FAT12", L"Random\\Floppy\\Z"}) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + path, L"", L"x");
    }
    WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + L"KeyDevices\\DSRF\\Default", L"/db1/kis_1",
                        L"D:\\keys\\db1\\kis_1");
    EXPECT_EQ(Run(readers, {L"PROPGONE"}), 0u);
    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"PROPX", L"1"}, {L"PROPGONE", L"pkg"}, {L"REGFLOPPY", L"A,Z"}, {L"REGDSRF", L"D:\\keys"}};
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(session_->Property(name), value) << name;
    }
    EXPECT_TRUE(messages_.all().empty());
}

} // namespace
} // namespace harness
