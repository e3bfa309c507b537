// The per-user, path and key actions against Wine (one profile, C:\users\root; no RunOnce keys).
#include <gtest/gtest.h>

#include <optional>
#include <utility>
#include <string>
#include <vector>

#include "action_session.h"
#include "frame/windows_version.h"
#include "import_redirect.h"
#include "machine.h"
#include "snapshot.h"

namespace harness {
namespace {

using namespace std::string_literals;
using Texts = std::vector<std::wstring>;

const HKEY kHklm = HKEY_LOCAL_MACHINE;
const std::wstring kRunOnce = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
const std::wstring kUserRunOnce = L"S-1-5-21-0-0-0-1000" + kRunOnce;
const std::wstring kDefaultRunOnce = L".Default" + kRunOnce;
const std::wstring kProfileList =
    L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\S-1-5-21-0-0-0-";
const std::wstring kControlsFolder = L"Software\\Microsoft\\Windows\\CurrentVersion\\Controls Folder";
const std::wstring kSessionManager = L"System\\CurrentControlSet\\Control\\Session Manager";
const std::wstring kCryptography = L"SOFTWARE\\Norvane\\Cryptography";

// Puts back what the actions change, pending file renames included.
class ProfilesTest : public ::testing::Test {
protected:
    ~ProfilesTest() override {
        DeleteRegistryTree(kHklm, L"SOFTWARE\\Norvane");
        DeleteRegistryTree(HKEY_USERS, kUserRunOnce);
        DeleteRegistryTree(HKEY_USERS, kDefaultRunOnce);
        DeleteRegistryTree(kHklm, kProfileList + L"1001");
        DeleteRegistryTree(kHklm, kProfileList + L"1002");
        RestoreRegistryValue(kHklm, kSessionManager, L"PendingFileRenameOperations", renames_);
        DeleteRegistryTree(HKEY_CURRENT_USER, kControlsFolder);
    }

    const std::optional<RegistryData> renames_ =
        ReadRegistryValue(kHklm, kSessionManager, L"PendingFileRenameOperations");
    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};

void CreateKey(HKEY root, const std::wstring& path) {
    RestoreRegistryValue(root, path, L"", std::nullopt);
}

// Refuses the first deletion it is asked for, as a key held by another program would be.
LSTATUS WINAPI RefuseFirstDeletion(HKEY key, const wchar_t* name) {
    static bool refused = false;
    return std::exchange(refused, true) ? RegDeleteKeyW(key, name) : ERROR_ACCESS_DENIED;
}

// The machine's and each listed user's password entries go, except those with subkeys and the machine's
// first one, whose deletion is refused (the others still go).
TEST_F(ProfilesTest, DeleteShortcutsRemovesOnlyPasswordEntriesWithoutSubkeys) {
    ImportRedirect refuse{GetModuleHandleW(L"setuputils.dll"), "advapi32.dll", "RegDeleteKeyW",
                          reinterpret_cast<void*>(&RefuseFirstDeletion)};
    Lines gone;
    for (const std::wstring user : {L"", L"Users\\S-1-5-21-0-0-0-1000\\"}) {
        const std::wstring root = L"SOFTWARE\\Norvane\\Settings\\" + user + L"KeyDevices\\";
        WriteRegistryString(kHklm, root + L"passwords\\a", L"pin", L"1");
        WriteRegistryString(kHklm, root + L"passwords\\kept\\sub", L"pin", L"2");
        CreateKey(kHklm, root + L"passwords\\z");
        CreateKey(kHklm, root + L"readers\\r");
        const std::wstring passwords = L"- HKLM\\" + root + L"passwords\\";
        if (!user.empty()) {
            gone.insert(gone.end(), {passwords + L"a", passwords + L"a [pin] type 1 '1|'"});
        }
        gone.push_back(passwords + L"z");
    }
    const Watched tree = {{kHklm, L"SOFTWARE\\Norvane"}};
    const Snapshot before = TakeSnapshot(tree);
    EXPECT_EQ(session_.Run("DeleteShortcuts"), 0u);
    EXPECT_EQ(SnapshotChanges(before, TakeSnapshot(tree)), gone);
    EXPECT_TRUE(messages_.all().empty());
}

// Written only where RunOnce exists (".Default", enumerated first, gets none); removed from every hive.
TEST_F(ProfilesTest, SetRunOnceEveryoneWritesOrRemovesWhereRunOnceExists) {
    WriteRegistryString(HKEY_USERS, kUserRunOnce, L"InstallCSP", L"old");
    EXPECT_EQ(session_.Run("SetRunOnceEveryone", L"x"), 0u);
    EXPECT_EQ(ReadRegistryString(HKEY_USERS, kUserRunOnce, L"InstallCSP"), L"x");
    EXPECT_FALSE(RegistryKeyExists(HKEY_USERS, kDefaultRunOnce));
    WriteRegistryString(HKEY_USERS, kDefaultRunOnce, L"InstallCSP", L"old");
    EXPECT_EQ(session_.Run("SetRunOnceEveryone", L"InstallCSP/"), 0u);
    EXPECT_FALSE(ReadRegistryValue(HKEY_USERS, kDefaultRunOnce, L"InstallCSP"));
    EXPECT_FALSE(ReadRegistryValue(HKEY_USERS, kUserRunOnce, L"InstallCSP"));
}

// Each profile's icon cache (one with an empty path is skipped) is deleted at the restart; the Controls
// Folder goes.
void ExpectIconCachesScheduled(ActionSession& session, const std::wstring& localFolder) {
    CreateKey(HKEY_CURRENT_USER, kControlsFolder);
    RestoreRegistryValue(kHklm, kProfileList + L"1001", L"ProfileImagePath", RegistryText(L""));
    RestoreRegistryValue(kHklm, kProfileList + L"1002", L"ProfileImagePath",
                         RegistryText(L"%SystemDrive%\\users\\x", REG_EXPAND_SZ));
    RestoreRegistryValue(kHklm, kSessionManager, L"PendingFileRenameOperations", std::nullopt);
    EXPECT_EQ(session.Run("RebuildIconCache"), 0u);
    const Texts paths = {L"C:\\users\\root" + localFolder + L"IconCache.db",
                         L"C:\\users\\x" + localFolder + L"IconCache.db"};
    EXPECT_EQ(ReadRegistryValue(kHklm, kSessionManager, L"PendingFileRenameOperations"),
              RegistryText(L"\\??\\" + paths[0] + L"\0\0\\??\\"s + paths[1] + L"\0\0"s, REG_MULTI_SZ));
    EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, kControlsFolder));
}

TEST_F(ProfilesTest, RebuildIconCacheSchedulesEveryProfilesCacheAndDropsEmptyControlsFolder) {
    ExpectIconCachesScheduled(session_, L"\\AppData\\Local\\");
}

// Under Windows XP profiles keep local data elsewhere.
using ProfilesIconCacheOnWindowsXP = ProfilesTest;
TEST_F(ProfilesIconCacheOnWindowsXP, UsesLocalSettingsFolder) {
    ASSERT_EQ(setuputils::GetNtVersion().major, 5u);
    ExpectIconCachesScheduled(session_, L"\\Local Settings\\Application Data\\");
}

// Wine lacks "ProgramW6432Dir", so the test writes it; an empty cryptography key goes.
TEST_F(ProfilesTest, PathPropertiesAndEmptyCryptographyKeys) {
    const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
    WriteRegistryString(kHklm, key, L"ProgramW6432Dir", L"D:\\Programs");
    EXPECT_EQ(session_.Run("GetCSPProgramW6432Dir"), 0u);
    RestoreRegistryValue(kHklm, key, L"ProgramW6432Dir", std::nullopt);
    EXPECT_EQ(session_.session().Property(L"GetCSPProgramW6432Dir"), L"D:\\Programs\\Norvane\\CSP\\");

    const std::wstring folder = MakeTempFolder(L"short") + L"A folder with a long name\\";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    wchar_t shortPath[MAX_PATH] = {};
    GetShortPathNameW(folder.c_str(), shortPath, MAX_PATH);
    session_.session().SetProperty(L"INSTALLDIR64", folder);
    EXPECT_EQ(session_.Run("MsiGetShortPathName"), 0u);
    EXPECT_EQ(session_.session().Property(L"INSTALLDIR64"), shortPath);
    RemoveDirectoryW(folder.c_str());

    CreateKey(kHklm, kCryptography + L"\\CurrentVersion");
    EXPECT_EQ(session_.Run("DelNVCryptographyKey"), 0u);
    EXPECT_FALSE(RegistryKeyExists(kHklm, kCryptography));
}

} // namespace
} // namespace harness
