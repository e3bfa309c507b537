// The seeding actions against Wine. Wine's HKEY_USERS holds ".Default" and the
// one user every program runs as, neither with a RunOnce key: the tests make
// those keys and remove them again, so that nothing is left to run at the next
// start of the prefix. The legacy patch is served by a stand-in patch module
// that counts its loads and calls.
#include <gtest/gtest.h>

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "action_session.h"
#include "frame/handles.h"
#include "frame/windows_version.h"
#include "machine.h"
#include "message_box_watcher.h"
#include "rng/random_seed.h"
#include "test_provider.h"

namespace harness {
namespace {

using namespace setuputils;

const std::wstring kUserSid = L"S-1-5-21-0-0-0-1000";
const std::wstring kDefaultHive = L".Default";
const std::wstring kRunOnce = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
const std::wstring kPatchSettings = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnPatches";
const std::wstring kPatchRecords = L"Software\\SetupUtilsTests\\Patch";

const std::wstring kProviderNode = L"SOFTWARE\\WOW6432Node\\Norvane";

std::wstring RandomKey(const std::wstring& sid) {
    return kProviderNode + L"\\Settings\\Users\\" + sid + L"\\Random";
}

const RegistryData kSeed = MakeRegistryData(REG_BINARY, "0123456789abcdef", 16);

// Writes the user's seed and flags; none deletes the value.
void SetSeed(const std::wstring& sid, const std::optional<RegistryData>& seed,
             const std::optional<RegistryData>& flags) {
    RestoreRegistryValue(HKEY_LOCAL_MACHINE, RandomKey(sid), L"RootRandomSeed", seed);
    RestoreRegistryValue(HKEY_LOCAL_MACHINE, RandomKey(sid), L"RootRandomSeedFlags", flags);
}

std::optional<RegistryData> RunOnceEntry(const std::wstring& hive, const std::wstring& name) {
    return ReadRegistryValue(HKEY_USERS, hive + kRunOnce, name);
}
void SetRunOnceEntry(const std::wstring& hive, const std::wstring& name, const std::wstring& command) {
    RestoreRegistryValue(HKEY_USERS, hive + kRunOnce, name, RegistryText(command));
}

// The patch settings, and what the stand-in's entry is to return.
void SetPatch(const std::wstring& image, const std::wstring& patch, DWORD result) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, kPatchSettings + L"\\ADVAPI32", L"Image Dll", image);
    WriteRegistryString(HKEY_LOCAL_MACHINE, kPatchSettings + L"\\ADVAPI32", L"Patch Dll64", patch);
    WriteRegistryDword(HKEY_CURRENT_USER, kPatchRecords, L"Result", result);
}
DWORD PatchCount(const wchar_t* name) {
    return ReadRegistryDword(HKEY_CURRENT_USER, kPatchRecords, name).value_or(0);
}

class RandomSeedingTest : public ::testing::Test {
protected:
    ~RandomSeedingTest() override {
        if (!hadSettings_) {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kProviderNode);
        }
        for (const std::wstring& hive : {kUserSid, kDefaultHive}) {
            DeleteRegistryTree(HKEY_USERS, hive + kRunOnce);
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, RandomKey(hive));
        }
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kPatchSettings);
        DeleteRegistryTree(HKEY_CURRENT_USER, kPatchRecords);
    }

    const bool hadSettings_ = RegistryKeyExists(HKEY_LOCAL_MACHINE, kProviderNode);
    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
    const std::wstring patch_ = TestProgramPath(L"test_patch.dll");
};

// Each case also reads the seed directly: only binary data count.
TEST_F(RandomSeedingTest, RunOnceWrittenOnlyForUsersWhoseSeedIsNotInitialised) {
    const std::wstring command = L"C:\\p\\rng.exe /user /q";
    const std::int64_t qword = 2;
    struct Case {
        std::optional<RegistryData> seed;
        std::optional<RegistryData> flags;
        bool seeded;
        LSTATUS seedStatus = ERROR_SUCCESS;
    };
    const Case cases[] = {
        {kSeed, RegistryDwordData(0x2), true},
        {kSeed, RegistryDwordData(0x3), true},
        {MakeRegistryData(REG_BINARY, "", 0), RegistryDwordData(0x2), true},
        {kSeed, RegistryDwordData(0x1), false},
        {RegistryText(L"seed"), RegistryDwordData(0x2), false, ERROR_INVALID_DATA},
        {RegistryDwordData(7), RegistryDwordData(0x2), false, ERROR_INVALID_DATA},
        {std::nullopt, RegistryDwordData(0x2), false, ERROR_FILE_NOT_FOUND},
        {kSeed, std::nullopt, false},
        {kSeed, RegistryDwordData(0x2, REG_BINARY), false},
        {kSeed, MakeRegistryData(REG_DWORD, &qword, sizeof(qword)), false}, // more than a DWORD holds
    };
    for (const Case& c : cases) {
        SetSeed(kUserSid, c.seed, c.flags);
        SetRunOnceEntry(kUserSid, L"Seed", L"older");
        SetRunOnceEntry(kDefaultHive, L"Seed", L"older");
        EXPECT_EQ(session_.Run("InitializeHardRng", L"Seed/" + command), 0u);
        // A seeded user's older entry stays as it was.
        EXPECT_EQ(RunOnceEntry(kUserSid, L"Seed"), RegistryText(c.seeded ? L"older" : command)) << c.seeded;
        EXPECT_EQ(RunOnceEntry(kDefaultHive, L"Seed"), RegistryText(command));
        RegKey random;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, RandomKey(kUserSid).c_str(), 0, KEY_QUERY_VALUE, random.put());
        EXPECT_EQ(ReadRootRandomSeed(random.get()), c.seedStatus);
    }
    // Without any seed key the user needs seeding too.
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, RandomKey(kUserSid));
    EXPECT_EQ(session_.Run("InitializeHardRng", L"Seed/" + command), 0u);
    EXPECT_EQ(RunOnceEntry(kUserSid, L"Seed"), RegistryText(command));
    EXPECT_TRUE(messages_.all().empty());
}

TEST_F(RandomSeedingTest, DefaultEntryNameNoRunOnceKeyCreatedAndEmptyCommandRemovesFromEveryone) {
    SetRunOnceEntry(kUserSid, L"Other", L"other");
    EXPECT_EQ(session_.Run("InitializeHardRng", L"C:\\p\\rng.exe"), 0u);
    EXPECT_EQ(RunOnceEntry(kUserSid, L"InstallCSP"), RegistryText(L"C:\\p\\rng.exe"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_USERS, kDefaultHive + kRunOnce));

    // Removal does not ask whether the user is seeded.
    SetSeed(kUserSid, kSeed, RegistryDwordData(0x2));
    SetRunOnceEntry(kDefaultHive, L"InstallCSP", L"C:\\p\\rng.exe");
    EXPECT_EQ(session_.Run("InitializeHardRng", L"InstallCSP/"), 0u);
    EXPECT_FALSE(RunOnceEntry(kUserSid, L"InstallCSP"));
    EXPECT_FALSE(RunOnceEntry(kDefaultHive, L"InstallCSP"));
    EXPECT_EQ(RunOnceEntry(kUserSid, L"Other"), RegistryText(L"other"));
}

TEST_F(RandomSeedingTest, LegacyPatchLoadsImageThenPatchAndKeepsOnlyASuccessfulPatch) {
    EXPECT_EQ(ApplyLegacyAdvapiPatch(), nullptr); // no settings
    // The image must load before the patch is touched.
    SetPatch(L"C:\\missing\\image.dll", patch_, 1);
    EXPECT_EQ(ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Loads"), 0u);

    // A failed patch is freed again.
    SetPatch(L"advapi32.dll", patch_, 0);
    EXPECT_EQ(ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Calls"), 1u);
    EXPECT_EQ(GetModuleHandleW(patch_.c_str()), nullptr);

    // A successful one stays, and is not called again while it is loaded.
    SetPatch(L"advapi32.dll", patch_, 1);
    HMODULE patched = ApplyLegacyAdvapiPatch();
    EXPECT_NE(patched, nullptr);
    EXPECT_EQ(GetModuleHandleW(patch_.c_str()), patched);
    EXPECT_EQ(ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Loads"), 2u);
    EXPECT_EQ(PatchCount(L"Calls"), 2u);
    FreeLibrary(patched);
}

// The package's provider type, served by the test provider as its default.
constexpr DWORD kProviderType = 80;
const std::wstring kProviderName = L"Test GOST Provider";
const std::wstring kTypeDefault = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 080";
const TestProviderCall kAcquire{L"CPAcquireContext", 0, CRYPT_VERIFYCONTEXT};
const TestProviderCall kUseHardwareRng{L"CPSetProvParam", 38, 0};
const TestProviderCall kRelease{L"CPReleaseContext", 0, 0};

class RandomSeedingUserTest : public RandomSeedingTest {
protected:
    RandomSeedingUserTest() { WriteRegistryString(HKEY_LOCAL_MACHINE, kTypeDefault, L"Name", kProviderName); }
    ~RandomSeedingUserTest() override { DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTypeDefault); }

    TestProvider provider_{kProviderName, kProviderType};
    MessageBoxCallRecorder boxes_{GetModuleHandleW(L"setuputils.dll")};
    StandInWindows dialogs_{L"#32770"}; // installer dialogs
};

TEST_F(RandomSeedingUserTest, SeededUserCallsNothingOthersAskTheProviderForItsHardwareGenerator) {
    struct Case {
        std::optional<RegistryData> seed;
        std::optional<RegistryData> flags;
        std::vector<TestProviderCall> calls;
    };
    const Case cases[] = {
        {kSeed, RegistryDwordData(0x3), {}},
        {kSeed, RegistryDwordData(0x1), {kAcquire, kUseHardwareRng, kRelease}},
        {RegistryText(L"seed"), RegistryDwordData(0x2), {kAcquire, kUseHardwareRng, kRelease}},
    };
    for (const Case& c : cases) {
        SetSeed(kUserSid, c.seed, c.flags);
        provider_.ClearCalls();
        EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 0u);
        EXPECT_EQ(provider_.Calls(), c.calls);
    }
    EXPECT_TRUE(boxes_.calls().empty());
    EXPECT_TRUE(messages_.all().empty());
}

TEST_F(RandomSeedingUserTest, FailsWithError666WhenNoProviderCanBeAcquired) {
    provider_.SetBehaviour({.acquireResult = static_cast<DWORD>(NTE_KEYSET_ENTRY_BAD)});
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 1603u);
    // Without any default provider of the type.
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTypeDefault);
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 1603u);
    const auto errors = messages_.FieldsOf(INSTALLMESSAGE_ERROR);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0], (std::vector<std::wstring>{L"666", L"InitializeHardRngUser", L"InitializeHardRng",
                                                    std::to_wstring(NTE_KEYSET_ENTRY_BAD)}));
    EXPECT_EQ(errors[1][1], L"InitializeHardRngUser");
    EXPECT_EQ(provider_.Calls(), std::vector<TestProviderCall>{kAcquire});
    EXPECT_TRUE(boxes_.calls().empty());
}

TEST_F(RandomSeedingUserTest, RefusedHardwareGeneratorShowsTheWarningOverTheInstallerDialog) {
    provider_.SetBehaviour({.hardwareRngResult = static_cast<DWORD>(NTE_FAIL)});
    HWND installer = dialogs_.Add(L"Test Setup");
    HWND other = dialogs_.Add(L"Other Dialog");
    struct Case {
        const wchar_t* data;
        HWND owner;
        const wchar_t* text;
    };
    // Without a dialog of the given title, any dialog will do.
    const Case cases[] = {
        {L"Caption/Test Setup/Message / with a slash", installer, L"Message / with a slash"},
        {L"Caption/Message", other, L"Message"}};
    for (const Case& c : cases) {
        MessageBoxWatcher watcher;
        EXPECT_EQ(session_.Run("InitializeHardRngUser", c.data), 0u);
        const std::optional<MessageBoxSeen> box = watcher.Wait();
        ASSERT_TRUE(box) << "no warning box";
        EXPECT_EQ(box->text + L"|" + box->caption, c.text + std::wstring(L"|Caption"));
        EXPECT_EQ(box->owner, c.owner);
    }
    // Wine shows neither topmost nor foreground on the window: the call tells.
    ASSERT_EQ(boxes_.calls().size(), 2u);
    for (const MessageBoxCall& call : boxes_.calls()) {
        EXPECT_EQ(call.style, static_cast<UINT>(MB_ICONWARNING | MB_SETFOREGROUND | MB_TOPMOST));
    }
    EXPECT_EQ(provider_.Calls(), (std::vector<TestProviderCall>{kAcquire, kUseHardwareRng, kRelease, kAcquire,
                                                                kUseHardwareRng, kRelease}));
}

// The patch is attempted before the provider is asked for, so the outcome of
// the action does not matter here.
void RunActionTwiceWithAFailingPatch(ActionSession& session, const std::wstring& patch) {
    SetPatch(L"advapi32.dll", patch, 0);
    session.Run("InitializeHardRngUser", L"");
    session.Run("InitializeHardRngUser", L"");
}

using RandomSeedingOnWindows7 = RandomSeedingTest;
using RandomSeedingOnWindows10 = RandomSeedingTest;

// This must stay the only seeding run of its test program's process.
TEST_F(RandomSeedingOnWindows7, LegacyPatchAttemptedOncePerProcess) {
    ASSERT_EQ(GetNtVersion().minor, 1u);
    RunActionTwiceWithAFailingPatch(session_, patch_);
    EXPECT_EQ(PatchCount(L"Loads"), 1u);
    EXPECT_EQ(PatchCount(L"Calls"), 1u);
}

TEST_F(RandomSeedingOnWindows10, LegacyPatchNeverAttempted) {
    RunActionTwiceWithAFailingPatch(session_, patch_);
    EXPECT_EQ(PatchCount(L"Loads"), 0u);
}

} // namespace
} // namespace harness
