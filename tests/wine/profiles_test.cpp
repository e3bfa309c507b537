// The per-user maintenance actions and the path and key actions of the
// features against Wine. Wine's HKEY_USERS holds ".Default" and the one user
// every program runs as, neither with a RunOnce key, and its ProfileList holds
// that user only (C:\users\root): the tests add what they need and remove it,
// together with the pending file renames, which the next start of the prefix
// would carry out.
#include <gtest/gtest.h>

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "action_session.h"
#include "machine.h"

namespace harness {
namespace {

using Texts = std::vector<std::wstring>;

const std::wstring kNorvane = L"SOFTWARE\\Norvane";
const std::wstring kSettings = L"SOFTWARE\\Norvane\\Settings\\";
const std::wstring kUserSid = L"S-1-5-21-0-0-0-1000";
const std::wstring kDefaultHive = L".Default";
const std::wstring kRunOnce = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
const std::wstring kProfileList = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList\\";
const std::wstring kCurrentVersion = L"Software\\Microsoft\\Windows\\CurrentVersion";
const std::wstring kControlsFolder = kCurrentVersion + L"\\Controls Folder";
const std::wstring kSessionManager = L"System\\CurrentControlSet\\Control\\Session Manager";
const std::wstring kPendingRenames = L"PendingFileRenameOperations";
const std::wstring kConfiguration = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion";

RegistryData Text(const std::wstring& text, DWORD type = REG_SZ) {
    const BYTE* bytes = reinterpret_cast<const BYTE*>(text.c_str());
    return {type, std::vector<BYTE>(bytes, bytes + (text.size() + 1) * sizeof(wchar_t))};
}

void CreateKey(HKEY root, const std::wstring& path) {
    RestoreRegistryValue(root, path, L"", std::nullopt);
}

// PendingFileRenameOperations as its entries: source, target, source, target...
Texts PendingRenames() {
    const std::optional<RegistryData> data =
        ReadRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
    Texts entries;
    if (!data) {
        return entries;
    }
    const wchar_t* entry = reinterpret_cast<const wchar_t*>(data->bytes.data());
    const wchar_t* end = entry + data->bytes.size() / sizeof(wchar_t);
    while (entry < end && *entry != L'\0') {
        for (int part = 0; part < 2; ++part) {
            entry += entries.emplace_back(entry).size() + 1;
        }
    }
    return entries;
}

class ProfilesTest : public ::testing::Test {
protected:
    ProfilesTest() { messages_.Clear(); }
    ~ProfilesTest() override {
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kNorvane);
        for (const std::wstring& hive : {kUserSid, kDefaultHive}) {
            DeleteRegistryTree(HKEY_USERS, hive + kRunOnce);
        }
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, renames_);
        DeleteRegistryTree(HKEY_CURRENT_USER, kControlsFolder);
    }

    const std::optional<RegistryData> renames_ =
        ReadRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};

// The machine's passwords and those of each user listed in the settings tree.
TEST_F(ProfilesTest, DeleteShortcutsRemovesOnlyPasswordEntriesWithoutSubkeys) {
    const Texts roots = {kSettings, kSettings + L"Users\\" + kUserSid + L"\\", kSettings + L"Users\\Other\\"};
    for (const std::wstring& root : roots) {
        const std::wstring passwords = root + L"KeyDevices\\passwords\\";
        WriteRegistryString(HKEY_LOCAL_MACHINE, passwords + L"a", L"pin", L"1");
        WriteRegistryString(HKEY_LOCAL_MACHINE, passwords + L"kept\\sub", L"pin", L"2");
        CreateKey(HKEY_LOCAL_MACHINE, passwords + L"z");
        CreateKey(HKEY_LOCAL_MACHINE, root + L"KeyDevices\\readers\\r");
    }
    EXPECT_EQ(session_.Run("DeleteShortcuts"), 0u);
    for (const std::wstring& root : roots) {
        const std::wstring passwords = root + L"KeyDevices\\passwords\\";
        EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, passwords + L"a")) << root;
        EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, passwords + L"z")) << root;
        EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, passwords + L"kept\\sub")) << root;
        EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, root + L"KeyDevices\\readers\\r")) << root;
    }
    EXPECT_TRUE(messages_.all().empty());
}

// Only the user's hive has a RunOnce key; ".Default", enumerated first, must
// not get one.
TEST_F(ProfilesTest, SetRunOnceEveryoneWritesOrRemovesWhereRunOnceExists) {
    struct Case {
        std::wstring data;
        std::optional<std::wstring> installCsp; // the "InstallCSP" entry afterwards
        std::optional<std::wstring> setup;      // the "Setup" entry afterwards
    };
    const Case cases[] = {
        {L"C:\\p\\csp.exe -q", L"C:\\p\\csp.exe -q", std::nullopt},
        {L"Setup/C:\\p\\a.exe /x", L"old", L"C:\\p\\a.exe /x"},
        {L"InstallCSP/", std::nullopt, std::nullopt},
        {L"", L"old", std::nullopt},
    };
    for (const Case& c : cases) {
        DeleteRegistryTree(HKEY_USERS, kUserSid + kRunOnce);
        RestoreRegistryValue(HKEY_USERS, kUserSid + kRunOnce, L"InstallCSP", Text(L"old"));
        EXPECT_EQ(session_.Run("SetRunOnceEveryone", c.data), 0u);
        const auto entry = [](const wchar_t* name) -> std::optional<std::wstring> {
            return ReadRegistryString(HKEY_USERS, kUserSid + kRunOnce, name);
        };
        EXPECT_EQ(entry(L"InstallCSP"), c.installCsp) << c.data;
        EXPECT_EQ(entry(L"Setup"), c.setup) << c.data;
        EXPECT_FALSE(RegistryKeyExists(HKEY_USERS, kDefaultHive + kRunOnce)) << c.data;
    }
    // A removal reaches every hive that has the key.
    RestoreRegistryValue(HKEY_USERS, kDefaultHive + kRunOnce, L"InstallCSP", Text(L"old"));
    RestoreRegistryValue(HKEY_USERS, kUserSid + kRunOnce, L"InstallCSP", Text(L"old"));
    session_.Run("SetRunOnceEveryone", L"InstallCSP/");
    EXPECT_FALSE(ReadRegistryValue(HKEY_USERS, kDefaultHive + kRunOnce, L"InstallCSP"));
    EXPECT_FALSE(ReadRegistryValue(HKEY_USERS, kUserSid + kRunOnce, L"InstallCSP"));
}

class ProfilesIconCacheTest : public ProfilesTest {
protected:
    ~ProfilesIconCacheTest() override {
        for (const wchar_t* profile : {L"S-1-5-21-0-0-0-1001", L"S-1-5-21-0-0-0-1002"}) {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kProfileList + profile);
        }
    }

    // Wine's own profile, one without a path (skipped) and one whose path
    // names an environment variable and does not exist. Returns the info texts.
    Texts Run() {
        CreateKey(HKEY_LOCAL_MACHINE, kProfileList + L"S-1-5-21-0-0-0-1001");
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kProfileList + L"S-1-5-21-0-0-0-1002", L"ProfileImagePath",
                             Text(L"%SystemDrive%\\users\\x", REG_EXPAND_SZ));
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, std::nullopt);
        EXPECT_EQ(session_.Run("RebuildIconCache"), 0u);
        return messages_.InfoTexts();
    }

    // Each scheduled path is logged after the same heading, and deleted at the restart.
    void ExpectScheduled(const Texts& infoTexts, const std::wstring& localFolder) {
        const Texts paths = {L"C:\\users\\root" + localFolder + L"IconCache.db",
                             L"C:\\users\\x" + localFolder + L"IconCache.db"};
        const std::wstring heading = L"Clean IconCache for path: ";
        EXPECT_EQ(infoTexts, (Texts{heading, paths[0], heading, paths[1]}));
        EXPECT_EQ(PendingRenames(), (Texts{L"\\??\\" + paths[0], L"", L"\\??\\" + paths[1], L""}));
    }
};

TEST_F(ProfilesIconCacheTest, SchedulesEveryProfilesIconCacheAndDropsEmptyControlsFolder) {
    CreateKey(HKEY_CURRENT_USER, kControlsFolder);
    ExpectScheduled(Run(), L"\\AppData\\Local\\");
    EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, kControlsFolder));
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, kCurrentVersion));

    CreateKey(HKEY_CURRENT_USER, kControlsFolder + L"\\Sub");
    session_.Run("RebuildIconCache");
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, kControlsFolder + L"\\Sub"));
}

// Runs under Windows XP (wine.windows_xp), where profiles keep local data elsewhere.
using ProfilesIconCacheOnWindowsXPTest = ProfilesIconCacheTest;
TEST_F(ProfilesIconCacheOnWindowsXPTest, UsesLocalSettingsFolder) {
    ASSERT_EQ(ReportedMajorVersion(), 5u);
    ExpectScheduled(Run(), L"\\Local Settings\\Application Data\\");
}

// Wine's registry lacks "ProgramW6432Dir" (Windows x64 has it): the test
// first runs without it, then writes it.
TEST_F(ProfilesTest, PathPropertiesGetCSPProgramW6432Dir) {
    const std::wstring key = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
    ASSERT_FALSE(ReadRegistryValue(HKEY_LOCAL_MACHINE, key, L"ProgramW6432Dir"));
    EXPECT_EQ(session_.Run("GetCSPProgramW6432Dir"), static_cast<UINT>(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(session_.session().Property(L"GetCSPProgramW6432Dir"), L"");

    WriteRegistryString(HKEY_LOCAL_MACHINE, key, L"ProgramW6432Dir", L"D:\\Programs");
    const UINT status = session_.Run("GetCSPProgramW6432Dir");
    RestoreRegistryValue(HKEY_LOCAL_MACHINE, key, L"ProgramW6432Dir", std::nullopt);
    EXPECT_EQ(status, 0u);
    EXPECT_EQ(session_.session().Property(L"GetCSPProgramW6432Dir"), L"D:\\Programs\\Norvane\\CSP\\");
}

TEST_F(ProfilesTest, PathPropertiesMsiGetShortPathName) {
    const std::wstring folder = MakeTempFolder(L"short") + L"A folder with a long name\\";
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr));
    session_.session().SetProperty(L"INSTALLDIR64", folder);
    EXPECT_EQ(session_.Run("MsiGetShortPathName"), 0u);
    const std::wstring shortPath = session_.session().Property(L"INSTALLDIR64");
    // Wine makes up 8.3 names from a hash of the long one, e.g. "AFOL~XYZ".
    EXPECT_NE(shortPath.find(L'~'), std::wstring::npos) << shortPath;
    EXPECT_EQ(shortPath.find(L' '), std::wstring::npos) << shortPath;
    wchar_t longPath[MAX_PATH] = {};
    GetLongPathNameW(shortPath.c_str(), longPath, MAX_PATH);
    EXPECT_EQ(longPath, folder);
    RemoveDirectoryW(folder.c_str());

    const std::wstring missing = folder + L"Not there\\";
    session_.session().SetProperty(L"INSTALLDIR64", missing);
    EXPECT_EQ(session_.Run("MsiGetShortPathName"), 0u);
    EXPECT_EQ(session_.session().Property(L"INSTALLDIR64"), missing);
}

TEST_F(ProfilesTest, PathPropertiesDelNVCryptographyKeyDeletesOnlyEmptyKeys) {
    struct Case {
        std::wstring subkey; // created below the configuration's parent
        bool configurationLeft;
        bool parentLeft;
    };
    const Case cases[] = {
        {L"CurrentVersion\\AppPath", true, true},
        {L"Other", false, true},
        {L"CurrentVersion", false, false},
    };
    for (const Case& c : cases) {
        CreateKey(HKEY_LOCAL_MACHINE, kNorvane + L"\\Cryptography\\" + c.subkey);
        CreateKey(HKEY_LOCAL_MACHINE, kConfiguration);
        EXPECT_EQ(session_.Run("DelNVCryptographyKey"), 0u);
        EXPECT_EQ(RegistryKeyExists(HKEY_LOCAL_MACHINE, kConfiguration), c.configurationLeft) << c.subkey;
        EXPECT_EQ(RegistryKeyExists(HKEY_LOCAL_MACHINE, kNorvane + L"\\Cryptography"), c.parentLeft)
            << c.subkey;
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kNorvane);
    }
}

} // namespace
} // namespace harness
