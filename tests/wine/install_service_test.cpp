// Driver package installation and its removal against the prefix's own setup
// API, service manager and registry: InstallService with its file queue
// callback and its check of the staged INF, the deferred actions and the
// command-line entry points that install and remove.
#include <cstring>

#include "action_session.h"
#include "driver_package_fixture.h"
#include "drivers/inf_path.h"
#include "drivers/remove_driver_package.h"
#include "frame/handles.h"
#include "snapshot.h"

namespace harness {
namespace {

using InstallServiceTest = DriverTest;

// The install section names two file and two registry sections on one line
// each, and the event-log section has an HKLM line beside its HKR lines: the
// removal takes all of it away again.
TEST_F(InstallServiceTest, InstallsStartsAndRestartsTheDriverAndRemovalUndoesIt) {
    const Watched package{.keys = {{HKEY_LOCAL_MACHINE, kTestKey},
                                   {HKEY_LOCAL_MACHINE, kEventLogKey + L"isvc"},
                                   {HKEY_LOCAL_MACHINE, setuputils::InfLocationKeyPath()}},
                          .services = {L"isvc"},
                          .files = {kDriversFolder + L"isvc.sys", kDriversFolder + L"isvc2.sys",
                                    kInfFolder + L"isvc.inf", kInfFolder + L"isvc.pnf"}};
    const Snapshot before = TakeSnapshot(package);
    // A staged INF marked read-only and hidden is made replaceable first.
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
    const std::wstring copy = L":'" + folder_ + L"isvc.sys' => '" + kDriversFolder + L"isvc.sys' [0:0]";
    EXPECT_TRUE(InOrder(log_.lines, {L"InstallService start.", L"SetFileAttributes Success: oem9931.inf",
                                     L"SetupOpenInfFile success: " + kInfFolder + L"isvc.inf",
                                     L"SaveInfFileLocation success", L"Start copy" + copy,
                                     L"StartDriver success", L"Install driver isvc success."}));
    EXPECT_EQ(GetFileAttributesW(locked.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), 0u);
    EXPECT_EQ(Location(id_), kInfFolder + L"isvc.inf");
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey + L"\\isvc\\Settings", L"Mode"), L"normal");
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"More"), L"1");
    EXPECT_TRUE(Exists(kDriversFolder + L"isvc2.sys"));
    ASSERT_EQ(WaitForServiceState(L"isvc", SERVICE_RUNNING), static_cast<DWORD>(SERVICE_RUNNING));
    // Wine's services installer skips the event-log section: its values are written here.
    WriteRegistryString(HKEY_LOCAL_MACHINE, kEventLogKey + L"isvc", L"EventMessageFile", L"IoLogMsg.dll");
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Source", L"x");

    setuputils::RemoveDriverPackage(id_, nullptr, 0, 0, log_);
    EXPECT_EQ(log_.lines.back(), L"Uninstall driver isvc success.");
    EXPECT_TRUE(WaitUntil([&] { return SnapshotChanges(before, TakeSnapshot(package)).empty(); }))
        << testing::PrintToString(SnapshotChanges(before, TakeSnapshot(package)));
    EXPECT_EQ(PendingRenames(), pendingAtStart_) << "every file could be deleted at once";
}

// Pointed at a driver image that is not there, the running driver is stopped
// and cannot start again; had it not been stopped, the start would have found
// it running and passed. Wine reports 1114 (Windows: 2).
TEST_F(InstallServiceTest, RunningDriverIsStoppedBeforeItStartsAgain) {
    ASSERT_EQ(Install(L"isvc.inf", DriverInf({.service = "isvc", .copyFiles = true})), 0u);
    ASSERT_EQ(WaitForServiceState(L"isvc", SERVICE_RUNNING), static_cast<DWORD>(SERVICE_RUNNING));
    std::string gone = DriverInf("isvc");
    gone.replace(gone.find("%12%\\isvc.sys"), 13, "%12%\\isvcgone.sys");
    EXPECT_EQ(Install(L"isvc2.inf", gone), static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    EXPECT_EQ(log_.lines.back(), L"error 1114: StartService");
    EXPECT_EQ(WaitForServiceState(L"isvc", SERVICE_STOPPED), static_cast<DWORD>(SERVICE_STOPPED));
}

// Without an INF or an AddService line nothing is staged; without a
// manufacturer the install section is DefaultInstall; flag 0x20 installs the
// service without starting it; flag 0x1 installs no service, whatever the INF says.
TEST_F(InstallServiceTest, SectionsFlagsAndFailures) {
    const struct {
        std::wstring inf;
        DriverInfOptions options;
        unsigned flags;
        DWORD status;
        std::wstring lastLine;
        DWORD state;
    } cases[] = {{L"isvcnone.inf",
                  {},
                  0x20,
                  0xE0000102,
                  L"SetupFindFirstLine('Driver_Install.Services',AddService)",
                  0},
                 {L"isvcdef.inf",
                  {"isvcdef", false, true},
                  0x20,
                  0,
                  L"Install driver isvcdef success.",
                  SERVICE_STOPPED},
                 {L"isvcskip.inf", {"isvcskip"}, 0x1, 0, L"Install driver (null) success.", 0}};
    for (const auto& row : cases) {
        EXPECT_EQ(Install(row.inf, DriverInf(row.options), row.flags), row.status) << row.inf;
        EXPECT_EQ(log_.lines.back(), row.lastLine) << row.inf;
        const std::wstring service(row.options.service.begin(), row.options.service.end());
        EXPECT_EQ(WaitForServiceState(service, row.state), row.state) << row.inf;
        EXPECT_EQ(Exists(kDriversFolder + service + L".sys"), row.options.copyFiles) << row.inf;
        EXPECT_EQ(Location(id_), row.status == 0 ? std::optional(kInfFolder + row.inf) : std::nullopt)
            << row.inf;
        setuputils::DeleteInfLocation(id_, log_);
    }
    EXPECT_EQ(setuputils::InstallService(folder_ + L"missing.inf", id_, nullptr, 0, log_),
              static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(log_.lines.back(), L"ComponentID:" + id_);
    EXPECT_FALSE(Exists(kInfFolder + L"isvcnone.inf") || Location(id_));
}

// An unreadable staged copy is emptied; then it no longer passes for the
// package's INF, and Wine stages the INF anew as an oemN.inf.
TEST_F(InstallServiceTest, UnreadableStagedCopyIsEmptiedAndStagedAgain) {
    const std::wstring inf = WriteInf(L"isvcchk.inf", DriverInf("isvcchk"));
    const std::wstring damaged = kInfFolder + L"isvcchk.inf";
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

// Copies are reported; a copy error, deletes, renames and anything else abort with 1003.
TEST(InstallServiceQueueCallback, ReportsCopiesAndAbortsEverythingElse) {
    RecordingLog log;
    FILEPATHS_W paths{L"C:\\windows\\system32\\drivers\\a.sys", L"C:\\pkg\\a.sys", 0x20, 0x400};
    for (UINT notification :
         {SPFILENOTIFY_STARTQUEUE, SPFILENOTIFY_ENDQUEUE, SPFILENOTIFY_NEEDMEDIA, SPFILENOTIFY_STARTSUBQUEUE,
          SPFILENOTIFY_STARTCOPY, SPFILENOTIFY_ENDCOPY, SPFILENOTIFY_ENDSUBQUEUE, SPFILENOTIFY_COPYERROR,
          SPFILENOTIFY_STARTDELETE, SPFILENOTIFY_ENDDELETE, SPFILENOTIFY_DELETEERROR,
          SPFILENOTIFY_STARTRENAME, SPFILENOTIFY_RENAMEERROR, 0x1000}) {
        const bool aborts = notification >= SPFILENOTIFY_STARTDELETE &&
                            notification != SPFILENOTIFY_NEEDMEDIA &&
                            notification != SPFILENOTIFY_STARTCOPY && notification != SPFILENOTIFY_ENDCOPY;
        SetLastError(0xBEEF);
        EXPECT_EQ(setuputils::InstallQueueCallback(&log, notification, reinterpret_cast<UINT_PTR>(&paths), 3),
                  static_cast<UINT>(aborts ? FILEOP_ABORT : FILEOP_DOIT))
            << notification;
        EXPECT_EQ(GetLastError(), aborts ? static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE) : 0xBEEFu)
            << notification;
    }
    const std::wstring route = L":'C:\\pkg\\a.sys' => 'C:\\windows\\system32\\drivers\\a.sys' [400:20]";
    EXPECT_EQ(log.lines, (Texts{L"Start copy operation: 3.", L"Start copy" + route, L"End copy" + route,
                                L"End copy operation.", L"Error copy" + route}));
}

using KSInstInstallTest = DriverTest;

// The deferred actions of the driver action data: the installation reports a
// failure as error 555 with the code and the system's text for it; the
// removal (and, under the name KSInstRollback, the rollback) never fails.
// Both advance the progress by the data's ticks.
TEST_F(KSInstInstallTest, InstallsTheLongNameAndTheRemovalNeverFails) {
    ActionSession session;
    MessageRecorder& messages = session.messages();
    auto run = [&](const char* action, const std::wstring& data) {
        messages.Clear();
        return session.Run(action, data);
    };
    const std::wstring data = ActionData(folder_, L"KSINST~1.INF|ksinst.inf", id_, L"256");
    // Data without all its fields: nothing done, nothing said.
    for (const std::wstring& bad : {std::wstring(), data.substr(0, data.rfind(kSeparator))}) {
        EXPECT_EQ(run("KSInstInstall", bad) + run("KSInstUninstall", bad), 2 * 1603u);
        EXPECT_TRUE(messages.all().empty());
    }

    EXPECT_EQ(run("KSInstInstall", data), 1603u);
    EXPECT_EQ(messages.InfoTexts().back(), kInfo + L"ComponentID:" + id_);
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), kDeferredProgress);
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                       FORMAT_MESSAGE_FROM_SYSTEM,
                   nullptr, ERROR_INVALID_HANDLE, 0x400, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    setuputils::LocalMemory owner(text);
    ASSERT_NE(text, nullptr) << "Wine has a text for 6";
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_ERROR), (std::vector<Texts>{{L"555", L"6", text}}));
    EXPECT_EQ(messages.all().back().type, static_cast<UINT>(INSTALLMESSAGE_ERROR)) << "after the progress";

    WriteInf(L"ksinst.inf", DriverInf({.service = "ksinst", .copyFiles = true}));
    EXPECT_EQ(run("KSInstInstall", data), 0u);
    EXPECT_EQ(messages.InfoTexts().back(), kInfo + L"Install driver ksinst success.");
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), kDeferredProgress);
    EXPECT_EQ(Location(id_), kInfFolder + L"ksinst.inf");

    // Flags 0x100: the service is deleted, not stopped, and the running driver's image moved away.
    EXPECT_EQ(run("KSInstRollback", data + kSeparator + L"ksinst"), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(),
                        {kInfo + L"Don't stop driver",
                         kInfo + L"File:" + kDriversFolder + L"ksinst.sys success mark delete at reboot.",
                         kInfo + L"Uninstall driver ksinst success."}));
    EXPECT_EQ(ServiceState(L"ksinst"), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(PendingRenames().size(), pendingAtStart_.size() + 2);
    StopAndDeleteService(L"ksinst");
    EXPECT_EQ(run("KSInstUninstall", data + kSeparator + L"ksinst"), 0u) << "nothing left to remove";
    EXPECT_EQ(messages.OfType(INSTALLMESSAGE_ERROR).size(), 1u);
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), kDeferredProgress);
}

using KSInstallWTest = DriverTest;

// KSInstallW <inf> [<component id> [<log file>]] installs and undoes a failed
// installation; KSUninstallW [<component id> [<log file>]] removes.
TEST_F(KSInstallWTest, InstallsAndRemovesByCommandLine) {
    auto call = [&](const char* entry, std::wstring commandLine) {
        library_.CommandLineEntry(entry)(nullptr, nullptr, commandLine.data(), SW_HIDE);
    };
    const std::wstring log = folder_ + L"a log.txt";
    const std::wstring inf = WriteInf(L"kscmd.inf", DriverInf({.service = "kscmd", .copyFiles = true}));
    call("KSInstallW", inf + L" " + id_ + L" \"" + log + L"\"");
    EXPECT_TRUE(
        InOrder(FileLines(log), {kInfo + L"InstallService start.", kInfo + L"FullFileName:" + inf,
                                 kInfo + L"ComponentID:" + id_, kInfo + L"Install driver kscmd success."}));
    EXPECT_EQ(Location(id_), kInfFolder + L"kscmd.inf");
    call("KSUninstallW", id_ + L" \"" + log + L"\"");
    EXPECT_TRUE(InOrder(FileLines(log), {kInfo + L"KSInstUninstall start.", kInfo + L"Service kscmd stopped.",
                                         kInfo + L"Uninstall driver kscmd success."}));
    EXPECT_EQ(WaitForServiceState(L"kscmd", 0), 0u);

    // Without a component id the record's value is named "ComponentID".
    ids_.push_back(setuputils::kDefaultComponentId);
    call("KSInstallW",
         L"\"" + WriteInf(L"kscmdid.inf", DriverInf({.service = "kscmdid", .copyFiles = true})) + L"\"");
    EXPECT_EQ(Location(setuputils::kDefaultComponentId), kInfFolder + L"kscmdid.inf");
    call("KSUninstallW", L"");
    EXPECT_FALSE(Exists(kInfFolder + L"kscmdid.inf") || Location(setuputils::kDefaultComponentId));

    // No driver image: the service is created and cannot start (Wine: 1114, Windows: 2).
    call("KSInstallW", WriteInf(L"kscmdbad.inf", DriverInf("kscmdbad")) + L" " + id_ + L" \"" + log + L"\"");
    EXPECT_TRUE(InOrder(FileLines(log), {L"KSInstall64:error 0x45A: StartService.",
                                         L"KSInstall64:error 0x45A: InstallService: 0x45A.",
                                         kInfo + L"Uninstall driver kscmdbad success."}));
    EXPECT_EQ(WaitForServiceState(L"kscmdbad", 0), 0u);
    EXPECT_FALSE(Exists(kInfFolder + L"kscmdbad.inf") || Location(id_));
}

} // namespace
} // namespace harness
