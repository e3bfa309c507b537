// MigrateReaders: the properties it sets from what an earlier installation left in the registry.
#include <gtest/gtest.h>

#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

const std::wstring kKey = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\";

class MigrateReadersTest : public ::testing::Test {
protected:
    ~MigrateReadersTest() override {
        for (const wchar_t* type : {L"KeyCarriers", L"KeyDevices", L"Random"}) {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kKey + type);
        }
    }
};

TEST_F(MigrateReadersTest, SetsFlagsSubkeyListsAndTheKeyStorePathOfExistingKeys) {
    // Subkeys are enumerated in name order; "PNP FAT12" is left out.
    for (const wchar_t* path : {L"KeyCarriers\\X\\Default", L"Random\\Floppy\\A",
                                L"Random\\Floppy\\PNP FAT12", L"Random\\Floppy\\Z"}) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + path, L"", L"x");
    }
    WriteRegistryString(HKEY_LOCAL_MACHINE, kKey + L"KeyDevices\\DSRF\\Default", L"/db1/kis_1",
                        L"D:\\keys\\db1\\kis_1");
    TestPackage package;
    package.AddStandardTables();
    package.Sql(L"CREATE TABLE `RegReaders` (`Type` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL, "
                L"`Condition` CHAR(255) PRIMARY KEY `Type`, `Name`)");
    package.Insert(L"RegReaders", L"`Type`, `Name`, `Condition`",
                   {{L"KeyCarriers", L"X\\Default", L"PROPX"},
                    {L"Random", L"Floppy", L"REGFLOPPY"},
                    {L"KeyDevices", L"DSRF\\Default", L"REGDSRF"}});
    package.Commit();
    TestSession session(package);
    MessageRecorder messages;
    EXPECT_EQ(SetupUtilsLibrary().Action("MigrateReaders")(session.get()), 0u);
    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"PROPX", L"1"}, {L"REGFLOPPY", L"A,Z"}, {L"REGDSRF", L"D:\\keys"}};
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(session.Property(name), value) << name;
    }
    EXPECT_TRUE(messages.all().empty());
}

} // namespace
} // namespace harness
