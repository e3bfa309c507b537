// Driver packages installed and removed against Wine's setup API, service manager and registry:
// InstallService, RemoveDriverPackage, the deferred actions and the command-line entry points.
#include <cstring>

#include "action_session.h"
#include "driver_package_fixture.h"
#include "drivers/remove_driver_package.h"
#include "snapshot.h"

namespace harness {
namespace {

using InstallServiceTest = DriverTest;

// Two file and two registry sections on one line each and an HKLM line among the event-log HKR
// lines are all undone; a read-only hidden staged INF is made replaceable first.
TEST_F(InstallServiceTest, InstallsStartsAndRestartsTheDriverAndRemovalUndoesIt) {
    const Watched package{.keys = {{HKEY_LOCAL_MACHINE, kTestKey},
                                   {HKEY_LOCAL_MACHINE, kEventLogKey + L"isvc"},
                                   {HKEY_LOCAL_MACHINE, setuputils::InfLocationKeyPath()}},
                          .services = {L"isvc"},
                          .files = {kDriversFolder + L"isvc.sys", kDriversFolder + L"isvc2.sys",
                                    kInfFolder + L"isvc.inf", kInfFolder + L"isvc.pnf"}};
    const Snapshot before = TakeSnapshot(package);
    const std::wstring locked = files_.emplace_back(kInfFolder + L"oem9931.inf");
    WriteTextFile(locked, "[Version]\r\n");
    ASSERT_TRUE(SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));
    WriteInf(L"isvc2.inf", ""); // for isvc2.sys beside isvc.inf
    std::string inf =
        DriverInf({.service = "isvc", .copyFiles = true, .addReg = true}) +
        "[More_Files]\r\nisvc2.sys\r\n[More_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",More,,\"1\"\r\n";
    for (auto [after, text] :
         {std::pair{"=Driver_Files", ",More_Files"},
          {"=Driver_AddReg", ",More_AddReg"},
          {"[SourceDisksFiles]\r\n", "isvc2.sys=1\r\n"},
          {"[EventLog_AddReg]\r\n", "HKLM,\"SOFTWARE\\SetupUtilsTest\",Source,,\"x\"\r\n"}}) {
        inf.insert(inf.find(after) + strlen(after), text);
    }
    ASSERT_EQ(Install(L"isvc.inf", inf), 0u);
    EXPECT_TRUE(InOrder(log_.lines,
                        {L"SetFileAttributes Success: oem9931.inf", L"SaveInfFileLocation success",
                         L"Start copy:'" + folder_ + L"isvc.sys' => '" + kDriversFolder + L"isvc.sys' [0:0]",
                         L"StartDriver success", L"Install driver isvc success."}));
    EXPECT_EQ(GetFileAttributesW(locked.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), 0u);
    EXPECT_TRUE(Exists(kDriversFolder + L"isvc2.sys") &&
                ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"More"));
    ASSERT_EQ(WaitForServiceState(L"isvc", SERVICE_RUNNING), static_cast<DWORD>(SERVICE_RUNNING));
    // A reinstall stops the running driver first: its missing image then fails the start (Windows: 2).
    std::string gone = DriverInf({"isvc"});
    EXPECT_EQ(Install(L"isvc3.inf", gone.replace(gone.find("isvc.sys"), 4, "gone")),
              static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    EXPECT_EQ(log_.lines.back(), L"error 1114: StartService");
    EXPECT_EQ(WaitForServiceState(L"isvc", SERVICE_STOPPED), static_cast<DWORD>(SERVICE_STOPPED));
    setuputils::SaveInfLocation(id_, kInfFolder + L"isvc.inf");
    // Wine's services installer skips the event-log section: its values are written here.
    WriteRegistryString(HKEY_LOCAL_MACHINE, kEventLogKey + L"isvc", L"EventMessageFile", L"IoLogMsg.dll");
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Source", L"x");

    setuputils::RemoveDriverPackage(id_, nullptr, 0, 0, log_);
    EXPECT_EQ(log_.lines.back(), L"Uninstall driver isvc success.");
    EXPECT_TRUE(WaitUntil([&] { return SnapshotChanges(before, TakeSnapshot(package)).empty(); }))
        << testing::PrintToString(SnapshotChanges(before, TakeSnapshot(package)));
    EXPECT_EQ(PendingRenames(), pendingAtStart_) << "every file could be deleted at once";
}

// No AddService line or INF: nothing staged; no manufacturer: DefaultInstall; flag 0x20: the
// service is not started; flag 0x1: no service is installed, whatever the INF says.
TEST_F(InstallServiceTest, SectionsFlagsAndFailures) {
    const std::wstring noService = L"SetupFindFirstLine('Driver_Install.Services',AddService)";
    using Case = std::tuple<std::wstring, DriverInfOptions, unsigned, DWORD, DWORD, std::wstring>;
    const Case cases[] = {
        {L"isvcnone.inf", {}, 0x20, 0xE0000102, 0, noService},
        {L"isdef.inf", {"isdef", false, true}, 0x20, 0, SERVICE_STOPPED, L"Install driver isdef success."},
        {L"isvcskip.inf", {"isvcskip"}, 0x1, 0, 0, L"Install driver (null) success."},
    };
    for (const auto& [name, options, flags, status, state, lastLine] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Install(name, DriverInf(options), flags), status);
        EXPECT_EQ(log_.lines.back(), lastLine);
        const std::wstring service(options.service.begin(), options.service.end());
        EXPECT_EQ(WaitForServiceState(service, state), state);
        EXPECT_EQ(Exists(kDriversFolder + service + L".sys"), options.copyFiles);
        EXPECT_EQ(Location(id_), status == 0 ? std::optional(kInfFolder + name) : std::nullopt);
        setuputils::DeleteInfLocation(id_, log_);
    }
    EXPECT_EQ(setuputils::InstallService(folder_ + L"missing.inf", id_, nullptr, 0, log_),
              static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_FALSE(Exists(kInfFolder + L"isvcnone.inf") || Location(id_));
}

// An unreadable staged copy is emptied and staged anew (Wine: as an oemN.inf).
TEST_F(InstallServiceTest, UnreadableStagedCopyIsEmptiedAndStagedAgain) {
    const std::wstring inf = WriteInf(L"isvcchk.inf", DriverInf({"isvcchk"}));
    const std::wstring damaged = files_.emplace_back(kInfFolder + L"isvcchk.inf");
    WriteTextFile(damaged, "\x7f\x01 not an INF at all\r\n");
    const auto staged = setuputils::CheckStagedInf(setuputils::InfPath{inf, folder_}, damaged, log_);
    ASSERT_TRUE(staged.has_value());
    files_.insert(files_.end(), {*staged, staged->substr(0, staged->size() - 3) + L"pnf"});
    EXPECT_EQ(log_.lines, (Texts{L"SetupOpenInfFile failure: " + damaged,
                                 L"CopyOemInf: Going to call SetupCopyOEMInf (1-st time)",
                                 L"CopyOemInf second call success: " + *staged}));
    EXPECT_EQ(ReadTextFile(damaged), "");
    EXPECT_EQ(ReadTextFile(*staged), ReadTextFile(inf));
}

// Copies are reported; a copy error and any other operation abort with 1003.
TEST(InstallServiceQueueCallback, ReportsCopiesAndAbortsEverythingElse) {
    RecordingLog log;
    FILEPATHS_W paths{L"C:\\t\\a.sys", L"C:\\s\\a.sys", 0x20, 0x400};
    for (auto [notification, result, error] : {std::tuple{SPFILENOTIFY_STARTCOPY, FILEOP_DOIT, 0xBEEFu},
                                               {SPFILENOTIFY_COPYERROR, FILEOP_ABORT, 1003u},
                                               {SPFILENOTIFY_STARTDELETE, FILEOP_ABORT, 1003u}}) {
        SetLastError(0xBEEF);
        EXPECT_EQ(setuputils::InstallQueueCallback(&log, notification, reinterpret_cast<UINT_PTR>(&paths), 0),
                  static_cast<UINT>(result));
        EXPECT_EQ(GetLastError(), error);
    }
    const std::wstring route = L":'C:\\s\\a.sys' => 'C:\\t\\a.sys' [400:20]";
    EXPECT_EQ(log.lines, (Texts{L"Start copy" + route, L"Error copy" + route}));
}

using RemoveDriverPackageTest = DriverTest;

// Without its own staged INF (Wine's driver-store lookup is a stub) only the named service and the
// location go; service names compare case-sensitively, the service manager's do not.
TEST_F(RemoveDriverPackageTest, WithoutItsOwnStagedInfOnlyTheNamedServiceAndTheLocationGo) {
    ASSERT_EQ(Install(L"rdp.inf", DriverInf({.service = "rdp", .copyFiles = true})), 0u);
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, kInfFolder + L"rdp.inf");
    setuputils::DeleteInfLocation(id_, log_);
    using Case = std::tuple<const wchar_t*, const wchar_t*, Texts>;
    const Case cases[] = {
        {L"rdpnone", L"", {L"error 2: Can't get inf file location", L"No service rdpnone to remove."}},
        {L"rdpgone", L"gone.inf", {L"SetupGetInfDriverStoreLocation fail.", L"Inf file location deleted."}},
        {L"RDP", L"rdp.inf", {L"Opened unknown INF", L"Service RDP stopped.", L"Service RDP deleted."}},
    };
    for (const auto& [service, staged, steps] : cases) {
        if (*staged != L'\0') {
            setuputils::SaveInfLocation(id_, kInfFolder + staged);
        }
        log_.lines.clear();
        setuputils::RemoveDriverPackage(id_, service, 0, 0, log_);
        EXPECT_TRUE(InOrder(log_.lines, steps));
        EXPECT_FALSE(Location(id_));
    }
    EXPECT_EQ(WaitForServiceState(L"rdp", 0), 0u);
    EXPECT_TRUE(Exists(kDriversFolder + L"rdp.sys") && Exists(kInfFolder + L"rdp.inf"));
    EXPECT_EQ(Location(other), kInfFolder + L"rdp.inf") << "another package's location stays";
}

using KSInstInstallTest = DriverTest;

// A failed install is error 555 with the system's text; removal never fails, and with flag 0x100
// deletes without stopping, moving the running image away until restart. Both advance the progress.
TEST_F(KSInstInstallTest, InstallsTheLongNameAndTheRemovalNeverFails) {
    ActionSession session;
    MessageRecorder& messages = session.messages();
    auto run = [&](const char* action, const std::wstring& data) {
        messages.Clear();
        const UINT status = session.Run(action, data);
        EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS),
                  (std::vector<Texts>{{L"1", L"0", L"0", L"0"}, {L"2", L"3000000", L"0", L"0"}}));
        return status;
    };
    const std::wstring data = ActionData(folder_, L"KSINST~1.INF|ksinst.inf", id_, L"256");
    EXPECT_EQ(run("KSInstInstall", data), 1603u) << "no INF";
    const auto error = messages.FieldsOf(INSTALLMESSAGE_ERROR);
    ASSERT_EQ(error.size(), 1u);
    EXPECT_EQ(Texts(error[0].begin(), error[0].begin() + 2), (Texts{L"555", L"6"}))
        << "with the system's text";
    EXPECT_EQ(messages.all().back().type, static_cast<UINT>(INSTALLMESSAGE_ERROR)) << "after the progress";

    WriteInf(L"ksinst.inf", DriverInf({.service = "ksinst", .copyFiles = true}));
    EXPECT_EQ(run("KSInstInstall", data), 0u);
    EXPECT_EQ(messages.InfoTexts().back(), kInfo + L"Install driver ksinst success.");
    EXPECT_EQ(run("KSInstRollback", data + kSeparator + L"ksinst"), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(),
                        {kInfo + L"Don't stop driver", kInfo + L"Uninstall driver ksinst success."}));
    EXPECT_EQ(ServiceState(L"ksinst"), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(PendingRenames().size(), pendingAtStart_.size() + 2);
    StopAndDeleteService(L"ksinst");
    EXPECT_EQ(run("KSInstUninstall", data + kSeparator + L"ksinst"), 0u) << "nothing left to remove";
    EXPECT_EQ(messages.OfType(INSTALLMESSAGE_ERROR).size(), 1u);
}

using KSInstallWTest = DriverTest;

// KSInstallW <inf> [<id> [<log>]] installs (undoing a failure); KSUninstallW [<id> [<log>]] removes.
TEST_F(KSInstallWTest, InstallsAndRemovesByCommandLine) {
    auto call = [&](const char* entry, std::wstring commandLine) {
        library_.CommandLineEntry(entry)(nullptr, nullptr, commandLine.data(), SW_HIDE);
        return ReadTextFile(folder_ + L"a log.txt");
    };
    const std::wstring log = L" \"" + folder_ + L"a log.txt\"";
    const std::wstring inf = WriteInf(L"kscmd.inf", DriverInf({.service = "kscmd", .copyFiles = true}));
    EXPECT_TRUE(
        call("KSInstallW", inf + L" " + id_ + log).ends_with("info: Install driver kscmd success.\r\n"));
    EXPECT_EQ(Location(id_), kInfFolder + L"kscmd.inf");
    EXPECT_TRUE(call("KSUninstallW", id_ + log).ends_with("info: Uninstall driver kscmd success.\r\n"));
    EXPECT_EQ(WaitForServiceState(L"kscmd", 0), 0u);

    // Without a component id the record's value is named "ComponentID".
    ids_.push_back(setuputils::kDefaultComponentId);
    call("KSInstallW",
         L"\"" + WriteInf(L"kscmdid.inf", DriverInf({.service = "kscmdid", .copyFiles = true})) + L"\"");
    EXPECT_EQ(Location(setuputils::kDefaultComponentId), kInfFolder + L"kscmdid.inf");
    call("KSUninstallW", L"");
    EXPECT_FALSE(Exists(kInfFolder + L"kscmdid.inf") || Location(setuputils::kDefaultComponentId));

    const std::string undone =
        call("KSInstallW", WriteInf(L"kscmdbad.inf", DriverInf({"kscmdbad"})) + L" " + id_ + log);
    EXPECT_NE(undone.find("error 0x45A: InstallService: 0x45A.\r\nKSInstall64:info: KSInstUninstall start."),
              std::string::npos);
    EXPECT_EQ(WaitForServiceState(L"kscmdbad", 0), 0u);
    EXPECT_FALSE(Exists(kInfFolder + L"kscmdbad.inf") || Location(id_));
}

} // namespace
} // namespace harness
