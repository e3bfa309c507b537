// Driver package installation against the prefix's own setup API, service
// manager and registry: InstallService, its file queue callback and the check
// of the staged INF, and the deferred and command-line entry points.
#include "action_session.h"
#include "driver_package_fixture.h"
#include "drivers/inf_location.h"
#include "drivers/inf_path.h"
#include "drivers/install_service.h"
#include "frame/handles.h"

namespace harness {
namespace {

constexpr DWORD kRunning = SERVICE_RUNNING;
constexpr DWORD kStopped = SERVICE_STOPPED;

using InstallServiceTest = DriverTest;

TEST_F(InstallServiceTest, StagesCopiesRegistersStartsAndRestartsTheDriver) {
    // A staged INF marked read-only and hidden is made replaceable first.
    const std::wstring locked = files_.emplace_back(kInfFolder + L"oem9931.inf");
    WriteTextFile(locked, "[Version]\r\n");
    ASSERT_TRUE(SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));

    ASSERT_EQ(Install(L"isvc.inf", DriverInf({.service = "isvc", .copyFiles = true, .addReg = true})), 0u);
    const std::wstring copy = L":'" + folder_ + L"isvc.sys' => '" + kDriversFolder + L"isvc.sys' [0:0]";
    EXPECT_TRUE(InOrder(log_.lines, {L"InstallService start.", L"SetFileAttributes Success: oem9931.inf",
                                     L"SetupOpenInfFile success: " + kInfFolder + L"isvc.inf",
                                     L"SaveInfFileLocation success", L"Start copy" + copy,
                                     L"StartDriver success", L"Install driver isvc success."}));
    EXPECT_EQ(GetFileAttributesW(locked.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), 0u);
    EXPECT_EQ(Location(id_), kInfFolder + L"isvc.inf");
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey + L"\\isvc\\Settings", L"Mode"), L"normal");
    ASSERT_EQ(WaitForServiceState(L"isvc", kRunning), kRunning);

    // Pointed at a driver image that is not there, the running driver is
    // stopped and cannot start again; had it not been stopped, the start would
    // have found it running and passed. Wine reports 1114 (Windows: 2).
    std::string gone = DriverInf("isvc");
    gone.replace(gone.find("%12%\\isvc.sys"), 13, "%12%\\isvcgone.sys");
    EXPECT_EQ(Install(L"isvc2.inf", gone), static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    EXPECT_EQ(log_.lines.back(), L"error 1114: StartService");
    EXPECT_NE(ServiceConfigText(L"isvc").find(kDriversFolder + L"isvcgone.sys"), std::wstring::npos);
    EXPECT_EQ(WaitForServiceState(L"isvc", kStopped), kStopped);
}

// Without an AddService line nothing is staged; without a manufacturer the
// install section is DefaultInstall; flag 0x20 installs the service without
// starting it; flag 0x1 installs no service, whatever the INF says.
TEST_F(InstallServiceTest, SectionsFlagsAndFailures) {
    const struct {
        std::wstring inf;
        DriverInfOptions options;
        unsigned flags;
        DWORD status;
        std::wstring lastLine;
        DWORD state;
    } cases[] = {
        {L"isvcnone.inf", {}, 0, 0xE0000102, L"SetupFindFirstLine('Driver_Install.Services',AddService)", 0},
        {L"isvcnone2.inf",
         {},
         0x20,
         0xE0000102,
         L"SetupFindFirstLine('Driver_Install.Services',AddService)",
         0},
        {L"isvcdef.inf", {"isvcdef", false, true}, 0x20, 0, L"Install driver isvcdef success.", kStopped},
        {L"isvcskip.inf", {"isvcskip"}, 0x1, 0, L"Install driver (null) success.", 0}};
    for (const auto& row : cases) {
        EXPECT_EQ(Install(row.inf, DriverInf(row.options), row.flags), row.status) << row.inf;
        EXPECT_EQ(log_.lines.back(), row.lastLine) << row.inf;
        const std::wstring service(row.options.service.begin(), row.options.service.end());
        EXPECT_EQ(WaitForServiceState(service, row.state), row.state) << row.inf;
        EXPECT_EQ(Exists(kDriversFolder + service + L".sys"), row.options.copyFiles) << row.inf;
        EXPECT_EQ(Exists(kInfFolder + row.inf), row.status == 0) << row.inf;
        EXPECT_EQ(Location(id_), row.status == 0 ? std::optional(kInfFolder + row.inf) : std::nullopt);
        setuputils::DeleteInfLocation(id_, log_);
    }
    EXPECT_EQ(setuputils::InstallService(folder_ + L"missing.inf", id_, nullptr, 0, log_),
              static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(log_.lines.back(), L"ComponentID:" + id_);
    EXPECT_FALSE(Location(id_).has_value());
}

TEST_F(InstallServiceTest, UnreadableStagedCopyIsEmptiedAndStagedAgain) {
    const std::wstring inf = WriteInf(L"isvcchk.inf", DriverInf("isvcchk"), false);
    const std::wstring damaged = kInfFolder + L"isvcchk.inf";
    WriteTextFile(damaged, "\x7f\x01 not an INF at all\r\n");

    // The emptied copy still holds the INF's name, so Wine stages the INF as an oemN.inf.
    const auto staged = setuputils::CheckStagedInf(setuputils::InfPath{inf, folder_}, damaged, log_);
    ASSERT_TRUE(staged.has_value());
    files_.insert(files_.end(), {*staged, staged->substr(0, staged->size() - 3) + L"pnf"});
    EXPECT_EQ(log_.lines, (Texts{L"SetupOpenInfFile failure: " + damaged,
                                 L"CopyOemInf: Going to call SetupCopyOEMInf (1-st time)",
                                 L"CopyOemInf second call success: " + *staged}));
    EXPECT_EQ(ReadTextFile(damaged), "");
    EXPECT_EQ(ReadTextFile(*staged), ReadTextFile(inf));
}

TEST(InstallServiceQueueCallback, ReportsCopiesAndAbortsEverythingElse) {
    RecordingLog log;
    FILEPATHS_W paths{L"C:\\windows\\system32\\drivers\\a.sys", L"C:\\pkg\\a.sys", 0x20, 0x400};
    auto call = [&](UINT notification, UINT_PTR param2 = 0) {
        SetLastError(0xBEEF);
        return setuputils::InstallQueueCallback(&log, notification, reinterpret_cast<UINT_PTR>(&paths),
                                                param2);
    };
    for (UINT notification :
         {SPFILENOTIFY_STARTQUEUE, SPFILENOTIFY_ENDQUEUE, SPFILENOTIFY_NEEDMEDIA, SPFILENOTIFY_STARTSUBQUEUE,
          SPFILENOTIFY_STARTCOPY, SPFILENOTIFY_ENDCOPY, SPFILENOTIFY_ENDSUBQUEUE}) {
        EXPECT_EQ(call(notification, 3), static_cast<UINT>(FILEOP_DOIT)) << notification;
        EXPECT_EQ(GetLastError(), 0xBEEFu) << notification;
    }
    // A copy error is reported; deletes, renames and anything else abort silently.
    for (UINT notification :
         {SPFILENOTIFY_COPYERROR, SPFILENOTIFY_STARTDELETE, SPFILENOTIFY_ENDDELETE, SPFILENOTIFY_DELETEERROR,
          SPFILENOTIFY_STARTRENAME, SPFILENOTIFY_RENAMEERROR, 0x1000}) {
        EXPECT_EQ(call(notification), static_cast<UINT>(FILEOP_ABORT)) << notification;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE)) << notification;
    }
    const std::wstring route = L":'C:\\pkg\\a.sys' => 'C:\\windows\\system32\\drivers\\a.sys' [400:20]";
    EXPECT_EQ(log.lines, (Texts{L"Start copy operation: 3.", L"Start copy" + route, L"End copy" + route,
                                L"End copy operation.", L"Error copy" + route}));
}

using KSInstInstallTest = DriverTest;

TEST_F(KSInstInstallTest, InstallsTheLongNameAdvancesProgressAndReportsFailureAs555) {
    ActionSession session;
    MessageRecorder& messages = session.messages();
    auto run = [&](const std::wstring& data) {
        messages.Clear();
        return session.Run("KSInstInstall", data);
    };
    const std::vector<Texts> progress{{L"1", L"0", L"0", L"0"}, {L"2", L"3000000", L"0", L"0"}};
    const std::wstring data = ActionData(folder_, L"KSINST~1.INF|ksinst.inf", id_, L"0");

    // Data without all its fields: nothing installed, nothing said.
    for (const std::wstring& bad : {std::wstring(), data.substr(0, data.rfind(kSeparator))}) {
        EXPECT_EQ(run(bad), 1603u);
        EXPECT_TRUE(messages.all().empty());
    }

    // No INF: the progress still advances, then error 555 with the code and the system's text for it.
    EXPECT_EQ(run(data), 1603u);
    EXPECT_EQ(messages.InfoTexts().back(), kInfo + L"ComponentID:" + id_);
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), progress);
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                       FORMAT_MESSAGE_FROM_SYSTEM,
                   nullptr, ERROR_INVALID_HANDLE, 0x400, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    setuputils::LocalMemory owner(text);
    ASSERT_NE(text, nullptr) << "Wine has a text for 6";
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_ERROR), (std::vector<Texts>{{L"555", L"6", text}}));
    EXPECT_EQ(messages.all().back().type, static_cast<UINT>(INSTALLMESSAGE_ERROR)) << "after the progress";
    EXPECT_FALSE(Location(id_).has_value());

    WriteInf(L"ksinst.inf", DriverInf({.service = "ksinst", .copyFiles = true}));
    EXPECT_EQ(run(data), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(), {kInfo + L"FullFileName:" + folder_ + L"ksinst.inf",
                                               kInfo + L"Install driver ksinst success."}));
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_PROGRESS), progress);
    EXPECT_TRUE(messages.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(Location(id_), kInfFolder + L"ksinst.inf");
}

using KSInstallWTest = DriverTest;

// rundll32 looks ",KSInstallW" up as KSInstallWW first (the exports test
// shows it is KSInstallW) and calls it with its wide command line.
TEST_F(KSInstallWTest, InstallsWithAFileLogAndUndoesAFailure) {
    const std::wstring log = folder_ + L"install.log";
    const std::wstring inf = WriteInf(L"kscmd.inf", DriverInf({.service = "kscmd", .copyFiles = true}));
    EXPECT_EQ(RunDll32(L"KSInstallW", {inf, id_, log}), 0);
    EXPECT_TRUE(InOrder(FileLines(log), {kInfo + L"InstallService start.", kInfo + L"FullFileName:" + inf,
                                         kInfo + L"ComponentID:" + id_, kInfo + L"StartDriver success",
                                         kInfo + L"Install driver kscmd success."}));
    EXPECT_EQ(Location(id_), kInfFolder + L"kscmd.inf");

    auto ksInstallW = [&](std::wstring commandLine) {
        library_.CommandLineEntry("KSInstallW")(nullptr, nullptr, commandLine.data(), SW_HIDE);
    };
    // Without a component id the record's value is named "ComponentID".
    ids_.push_back(setuputils::kDefaultComponentId);
    ksInstallW(L"\"" + WriteInf(L"kscmdid.inf", DriverInf({.service = "kscmdid", .copyFiles = true})) +
               L"\"");
    EXPECT_EQ(Location(setuputils::kDefaultComponentId), kInfFolder + L"kscmdid.inf");

    // No driver image: the service is created and cannot start (Wine: 1114, Windows: 2).
    ksInstallW(WriteInf(L"kscmdbad.inf", DriverInf("kscmdbad"), false) + L" " + id_ + L" " + log);
    const Texts lines = FileLines(log);
    EXPECT_TRUE(InOrder(lines, {L"KSInstall64:error 0x45A: StartService.",
                                L"KSInstall64:error 0x45A: InstallService: 0x45A.",
                                kInfo + L"KSInstUninstall start."}));
    EXPECT_EQ(lines.back(), kInfo + L"Uninstall driver kscmdbad success.");
    EXPECT_EQ(WaitForServiceState(L"kscmdbad", 0), 0u);
    EXPECT_FALSE(Exists(kInfFolder + L"kscmdbad.inf"));
    EXPECT_FALSE(Location(id_).has_value());
}

} // namespace
} // namespace harness
