// Removal of INF driver packages against the prefix's real service manager,
// setup API and registry: RemoveDriverPackage and its removers, and the
// KSInstUninstall and KSUninstallW entry points.
#include <filesystem>

#include "action_session.h"
#include "driver_package_fixture.h"
#include "drivers/driver_rules.h"
#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "drivers/remove_driver_package.h"
#include "drivers/removers.h"
#include "snapshot.h"

namespace harness {
namespace {

constexpr DWORD kRunning = SERVICE_RUNNING;

class RemoveDriverPackageTest : public DriverTest {
protected:
    // What the removal of the package of id_ logs.
    Texts Remove(const wchar_t* service) {
        log_.lines.clear();
        setuputils::RemoveDriverPackage(id_, service, 0, 0, log_);
        return log_.lines;
    }
};

// The install section names two file and two registry sections on one line
// each, and the event-log section has an HKLM line beside its HKR lines.
TEST_F(RemoveDriverPackageTest, FullRemovalLeavesTheMachineAsItWas) {
    const Watched package{.keys = {{HKEY_LOCAL_MACHINE, kTestKey},
                                   {HKEY_LOCAL_MACHINE, kEventLogKey + L"rdpfull"},
                                   {HKEY_LOCAL_MACHINE, setuputils::InfLocationKeyPath()}},
                          .services = {L"rdpfull"},
                          .files = {kDriversFolder + L"rdpfull.sys", kDriversFolder + L"rdpmore.sys",
                                    kInfFolder + L"rdpfull.inf", kInfFolder + L"rdpfull.pnf"}};
    const Snapshot before = TakeSnapshot(package);
    names_.push_back(L"rdpmore");
    CopyFileW(TestDriverPath().c_str(), (folder_ + L"rdpmore.sys").c_str(), FALSE);
    std::string inf =
        DriverInf({.service = "rdpfull", .copyFiles = true, .addReg = true}) +
        "[More_Files]\r\nrdpmore.sys\r\n[More_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",More,,\"1\"\r\n";
    auto add = [&inf](const std::string& after, const std::string& text) {
        inf.insert(inf.find(after) + after.size(), text);
    };
    add("=Driver_Files", ",More_Files");
    add("=Driver_AddReg", ",More_AddReg");
    add("[SourceDisksFiles]\r\n", "rdpmore.sys=1\r\n");
    add("[EventLog_AddReg]\r\n", "HKLM,\"SOFTWARE\\SetupUtilsTest\",Source,,\"x\"\r\n");
    ASSERT_EQ(Install(L"rdpfull.inf", inf), 0u);
    // Wine's services installer skips the event-log section: its values are written here.
    WriteRegistryString(HKEY_LOCAL_MACHINE, kEventLogKey + L"rdpfull", L"EventMessageFile", L"IoLogMsg.dll");
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kEventLogKey + L"rdpfull", L"TypesSupported", 7);
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Source", L"x");
    ASSERT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"More"), L"1");
    ASSERT_TRUE(Exists(kDriversFolder + L"rdpmore.sys") && Exists(kInfFolder + L"rdpfull.pnf"));

    EXPECT_EQ(Remove(nullptr).back(), L"Uninstall driver rdpfull success.");
    EXPECT_TRUE(WaitUntil([&] { return SnapshotChanges(before, TakeSnapshot(package)).empty(); }))
        << ::testing::PrintToString(SnapshotChanges(before, TakeSnapshot(package)));
    EXPECT_EQ(PendingRenames(), pendingAtStart_) << "every file could be deleted at once";

    // Removed again: no location, and without a service name nothing else to do.
    EXPECT_EQ(Remove(nullptr), (Texts{L"KSInstUninstall start.", L"error 2: Can't get inf file location",
                                      L"error 2: GetInfFileLocation"}));
}

TEST_F(RemoveDriverPackageTest, WithoutTheStagedInfOnlyTheNamedServiceGoes) {
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, kInfFolder + L"rdpelse.inf");
    EXPECT_EQ(Remove(L"rdpnone"), (Texts{L"KSInstUninstall start.", L"error 2: Can't get inf file location",
                                         L"GetInfFileLocation error", L"StopDeleteService: rdpnone.",
                                         L"No service rdpnone to stop.", L"No service rdpnone to remove."}));

    // Wine's driver-store lookup is a stub failing with 120; a real system has
    // no store copy of a staged INF that is gone either.
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpgone.inf");
    EXPECT_TRUE(
        InOrder(Remove(L"rdpgone"), {L"SetupGetInfDriverStoreLocation fail.", L"StopDeleteService: rdpgone.",
                                     L"No service rdpgone to remove.", L"Inf file location deleted."}));
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpgone.inf");
    EXPECT_TRUE(InOrder(Remove(nullptr),
                        {L"error 120: SetupGetInfDriverStoreLocation", L"Inf file location deleted."}));
    EXPECT_EQ(Location(other), kInfFolder + L"rdpelse.inf") << "another package's location stays";
}

// A staged INF naming another service, or none, may be another package's: only
// the named service and the location go. One staged as "x.INF" stays too.
TEST_F(RemoveDriverPackageTest, StagedInfOfAnotherPackageStays) {
    ASSERT_EQ(Install(L"rdpown.inf", DriverInf({.service = "rdpown", .copyFiles = true, .addReg = true})),
              0u);
    names_.push_back(L"rdpother");
    TestDriverService foreign(L"rdpother");
    foreign.Start();
    const Watched package{
        .keys = {{HKEY_LOCAL_MACHINE, kTestKey}},
        .services = {},
        .files = {kDriversFolder + L"rdpown.sys", kInfFolder + L"rdpown.inf", kInfFolder + L"rdpown.pnf"}};
    const Snapshot installed = TakeSnapshot(package);
    auto unknown = [](const std::wstring& name) {
        return Texts{L"Opened unknown INF", L"StopDeleteService: " + name + L".",
                     L"Service " + name + L" stopped.", L"Service " + name + L" deleted.",
                     L"Inf file location deleted."};
    };
    EXPECT_TRUE(InOrder(Remove(L"rdpother"), unknown(L"rdpother")));
    EXPECT_EQ(ServiceState(L"rdpown"), kRunning);
    EXPECT_TRUE(SnapshotChanges(installed, TakeSnapshot(package)).empty());

    // The names are compared case-sensitively, but the service manager finds
    // "RDPOWN" as "rdpown": that service goes, the rest of the package stays.
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpown.inf");
    EXPECT_TRUE(InOrder(Remove(L"RDPOWN"), unknown(L"RDPOWN")));
    EXPECT_EQ(WaitForServiceState(L"rdpown", 0), 0u);
    EXPECT_TRUE(SnapshotChanges(installed, TakeSnapshot(package)).empty());

    // An INF without AddService: a named service is foreign; without a name only the location goes.
    const std::string plain = DriverInf({.extraInstallLines = "AddReg=Plain_AddReg\n"}) +
                              "[Plain_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",Kept,,\"1\"\r\n";
    ASSERT_EQ(Install(L"rdpplain.inf", plain, setuputils::kFlagNoService), 0u);
    EXPECT_TRUE(InOrder(Remove(L"rdpplain"), {L"Opened unknown INF", L"No service rdpplain to remove."}));
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpplain.inf");
    EXPECT_TRUE(
        InOrder(Remove(nullptr), {L"Found InstallSectionName: Driver_Install", L"Inf file location deleted.",
                                  L"Uninstall driver unknown success."}));
    EXPECT_TRUE(Exists(kInfFolder + L"rdpplain.inf"));
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Kept"), L"1");

    ASSERT_EQ(Install(L"rdpupper.INF", DriverInf("rdpupper"), setuputils::kFlagDoNotStart), 0u);
    ASSERT_EQ(Location(id_), kInfFolder + L"rdpupper.INF");
    EXPECT_TRUE(
        InOrder(Remove(nullptr), {L"Inf filename: 'rdpupper.INF'.", L"SetupUninstallOEMInf done.",
                                  L"error 123: Invalid OEMxxxx.inf file name", L"Inf file location deleted.",
                                  L"Uninstall driver rdpupper success."}));
    EXPECT_TRUE(Exists(kInfFolder + L"rdpupper.INF") && Exists(kInfFolder + L"rdpupper.pnf"));
}

// A mapped image cannot be deleted but can be renamed, under Wine as under
// Windows; a handle that does not share deletion blocks both.
TEST_F(RemoveDriverPackageTest, FileInUseIsMovedAwayAndDeletedAtRestart) {
    const std::wstring image = folder_ + L"inuse.dll";
    const std::wstring locked = folder_ + L"locked.txt";
    ASSERT_TRUE(CopyFileW(SetupUtilsLibrary::Path().c_str(), image.c_str(), FALSE));
    WriteTextFile(locked, "locked");
    HANDLE handle =
        CreateFileW(locked.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    HMODULE mapped = LoadLibraryExW(image.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(setuputils::DeleteOrDelayFile(image, log_), 0u);
    EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log_), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    FreeLibrary(mapped);
    CloseHandle(handle);

    Texts moved;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        if (entry.path().filename().wstring().starts_with(L"csp")) {
            moved.push_back(folder_ + entry.path().filename().wstring());
        }
    }
    ASSERT_EQ(moved.size(), 1u) << "the temporary name of the locked file is given back";
    EXPECT_TRUE(InOrder(log_.lines, {L"File:" + image + L" couldn't be deleted.",
                                     L"File:" + image + L" success mark delete at reboot.",
                                     L"File:" + locked + L" couldn't be deleted."}));
    EXPECT_EQ(log_.lines.back().rfind(L"MoveFileEx from file:" + locked + L" to " + folder_ + L"csp", 0), 0u);
    EXPECT_FALSE(Exists(image)) << "the name is free at once";
    Texts expected = pendingAtStart_;
    expected.insert(expected.end(), {L"\\??\\" + moved[0], L""});
    EXPECT_EQ(PendingRenames(), expected);

    // A missing file counts as removed; a free one goes at once, silently.
    log_.lines.clear();
    EXPECT_EQ(setuputils::DeleteOrDelayFile(folder_ + L"missing.sys", log_), 0u);
    EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log_), 0u);
    EXPECT_EQ(log_.lines, Texts{L"No files to remove: " + folder_ + L"missing.sys"});
    EXPECT_FALSE(Exists(locked));
}

TEST_F(RemoveDriverPackageTest, EmptyKeysGoUpToANonEmptyParentButNeverTheFirst) {
    const std::wstring leaf = kTestKey + L"\\rdpkeys\\A\\B\\C";
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey + L"\\rdpkeys", L"Keep", L"1");
    WriteRegistryString(HKEY_LOCAL_MACHINE, leaf, L"Value", L"1");
    WriteRegistryString(HKEY_CURRENT_USER, L"rdptop\\x\\y", L"Value", L"1");
    setuputils::RegistryValueRemover remover(log_);
    EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, leaf, L"Missing"), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    setuputils::RemoveEmptyKey(HKEY_LOCAL_MACHINE, leaf, log_);
    EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, leaf, L"Value"), 0u);
    EXPECT_EQ(remover.Remove(HKEY_CURRENT_USER, L"rdptop\\x\\y", L"Value"), 0u);
    EXPECT_EQ(log_.lines, (Texts{L"Empty key 'SOFTWARE\\SetupUtilsTest\\rdpkeys\\A\\B\\C' removed.",
                                 L"Empty key 'SOFTWARE\\SetupUtilsTest\\rdpkeys\\A\\B' removed.",
                                 L"Empty key 'SOFTWARE\\SetupUtilsTest\\rdpkeys\\A' removed.",
                                 L"Empty key 'rdptop\\x\\y' removed.", L"Empty key 'rdptop\\x' removed."}));
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, L"rdptop")) << "the first component stays, even empty";
    DeleteRegistryTree(HKEY_CURRENT_USER, L"rdptop");
}

using KSInstUninstallTest = DriverTest;

TEST_F(KSInstUninstallTest, RemovesThePackageOfItsDataAndNeverFails) {
    ASSERT_EQ(
        Install(L"rdpaction.inf", DriverInf({.service = "rdpaction", .copyFiles = true, .addReg = true})),
        0u);
    ActionSession session;
    MessageRecorder& messages = session.messages();
    auto run = [&](const char* action, const std::wstring& data) {
        messages.Clear();
        return session.Run(action, data);
    };
    const std::wstring data = ActionData(folder_, L"rdpaction.inf", id_, L"256");
    const std::wstring sys = kDriversFolder + L"rdpaction.sys";
    const std::vector<Texts> progress = {{L"1", L"0", L"0", L"0"}, {L"2", L"3000000", L"0", L"0"}};

    // The rollback of an installation is the same removal. Flags 0x100: the
    // service is deleted, not stopped, and the running driver's image moved away.
    EXPECT_EQ(run("KSInstRollback", data + kSeparator + L"rdpaction"), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(), {kInfo + L"Don't stop driver",
                                               kInfo + L"File:" + sys + L" success mark delete at reboot.",
                                               kInfo + L"Uninstall driver rdpaction success."}));
    EXPECT_TRUE(messages.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), progress);
    EXPECT_EQ(ServiceState(L"rdpaction"), kRunning);
    EXPECT_FALSE(Exists(sys));
    EXPECT_EQ(PendingRenames().size(), pendingAtStart_.size() + 2);
    StopAndDeleteService(L"rdpaction");

    // Nothing left to remove: the error is reported, the action still succeeds.
    EXPECT_EQ(run("KSInstUninstall", data + kSeparator + L"rdpaction"), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(),
                        {kInfo + L"GetInfFileLocation error", kInfo + L"No service rdpaction to remove."}));
    EXPECT_EQ(messages.OfType(INSTALLMESSAGE_ERROR).size(), 1u);
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), progress);

    // Data without the progress field, or none, is refused before anything is done.
    for (const std::wstring& bad : {data.substr(0, data.rfind(kSeparator)), std::wstring()}) {
        EXPECT_EQ(run("KSInstUninstall", bad), static_cast<UINT>(ERROR_INSTALL_FAILURE));
        EXPECT_TRUE(messages.all().empty());
    }
}

using KSUninstallWTest = DriverTest;

// rundll32 looks ",KSUninstallW" up as KSUninstallWW first (the exports test
// shows it is KSUninstallW) and hands it the wide command line.
TEST_F(KSUninstallWTest, CommandLineRemovesThePackageAndWritesItsLog) {
    // A service that was never started, with neither files nor registry values.
    ASSERT_EQ(Install(L"rdpcmd.inf", DriverInf("rdpcmd"), setuputils::kFlagDoNotStart), 0u);
    const std::wstring log = folder_ + L"un install.log";
    EXPECT_EQ(RunDll32(L"KSUninstallW", {id_, L"\"" + log + L"\""}), 0);
    EXPECT_TRUE(
        InOrder(FileLines(log),
                {kInfo + L"KSInstUninstall start.", kInfo + L"Service rdpcmd already stoped.",
                 kInfo + L"Service rdpcmd deleted.", kInfo + L"No files found 'Driver_Install.CopyFiles'.",
                 kInfo + L"No files found 'Driver_Install.AddReg'",
                 kInfo + L"Pnf file 'C:\\windows\\inf\\rdpcmd.pnf' deleted.",
                 kInfo + L"Inf file location deleted.", kInfo + L"Uninstall driver rdpcmd success."}));
    EXPECT_EQ(WaitForServiceState(L"rdpcmd", 0), 0u);

    // Called in process without arguments: the package recorded under the default component id goes.
    ids_.push_back(setuputils::kDefaultComponentId);
    ASSERT_EQ(setuputils::InstallService(WriteInf(L"rdpdefault.inf", DriverInf("rdpdefault")),
                                         setuputils::kDefaultComponentId, nullptr,
                                         setuputils::kFlagDoNotStart, log_),
              0u);
    wchar_t empty[] = L"";
    library_.CommandLineEntry("KSUninstallW")(nullptr, nullptr, empty, SW_HIDE);
    EXPECT_EQ(WaitForServiceState(L"rdpdefault", 0), 0u);
    EXPECT_FALSE(Exists(kInfFolder + L"rdpdefault.inf"));
    EXPECT_FALSE(Location(setuputils::kDefaultComponentId).has_value());
}

} // namespace
} // namespace harness
