// Driver package installation against the prefix's own setup API, service
// manager and registry: InstallService, its file queue callback and the check
// of the staged INF, and the deferred and command-line entry points.
#include <gtest/gtest.h>

#include <process.h>

#include <algorithm>
#include <string>
#include <vector>

#include <windows.h>

#include "driver_inf.h"
#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "frame/handles.h"
#include "action_session.h"
#include "machine.h"

namespace setuputils {
namespace {

using Lines = std::vector<std::wstring>;

const std::wstring kInfFolder = L"C:\\windows\\inf\\";
const std::wstring kDriversFolder = L"C:\\windows\\system32\\drivers\\";
const std::wstring kServicesKey = L"SYSTEM\\CurrentControlSet\\Services\\";
const std::wstring kInfo = L"KSInstall64:info: ";
const std::wstring kId = L"{5A1F0C3E-0001}";
constexpr DWORD kRunning = SERVICE_RUNNING;
constexpr DWORD kStopped = SERVICE_STOPPED;

// Every line in order; an error line carries the last-error value.
class RecordingLog final : public InstallLog {
public:
    void NeedReboot() override {}
    void Info(const wchar_t* text) override { lines.push_back(text); }
    void Error(const wchar_t* text) override {
        lines.push_back(L"error " + std::to_wstring(GetLastError()) + L": " + text);
    }
    Lines lines;
};

// Passes when `steps` occur in `lines` in this order, whatever comes between them.
::testing::AssertionResult InOrder(const Lines& lines, const Lines& steps) {
    auto at = lines.begin();
    for (const auto& step : steps) {
        at = std::find(at, lines.end(), step);
        if (at == lines.end()) {
            return ::testing::AssertionFailure()
                   << "no " << step << " in order in " << ::testing::PrintToString(lines);
        }
        ++at;
    }
    return ::testing::AssertionSuccess();
}

std::string FileBytes(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES ? harness::ReadTextFile(path)
                                                                       : "<missing>";
}

// The lines of a file log, split at CR LF.
Lines FileLines(const std::wstring& path) {
    const std::string text = FileBytes(path);
    Lines lines;
    for (std::size_t start = 0, end = 0; start < text.size(); start = end + 2) {
        end = std::min(text.find("\r\n", start), text.size());
        lines.emplace_back(text.begin() + start, text.begin() + end);
    }
    return lines;
}

std::optional<std::wstring> InfLocation(const std::wstring& componentId = kId) {
    return harness::ReadRegistryString(HKEY_LOCAL_MACHINE, InfLocationKeyPath(), componentId);
}

// rundll32 of the prefix (64-bit) calling `entry` of the library, run to its end; its exit code.
intptr_t RunDll32(const std::wstring& entry, const std::wstring& inf, const std::wstring& log) {
    const std::wstring library = L"\"" + harness::SetupUtilsLibrary::Path() + L"\"," + entry;
    return _wspawnlp(_P_WAIT, L"rundll32.exe", L"rundll32.exe", library.c_str(), inf.c_str(), kId.c_str(),
                     log.c_str(), nullptr);
}

void KSInstallW(std::wstring commandLine) {
    harness::SetupUtilsLibrary().CommandLineEntry("KSInstallW")(nullptr, nullptr, commandLine.data(),
                                                                SW_HIDE);
}

// Writes INFs into a fresh folder; removes at the end whatever an installation
// may have left: services, files, registry values, staged INFs, location values.
class InstallServiceTest : public ::testing::Test {
protected:
    ~InstallServiceTest() override {
        for (const auto& service : services_) {
            harness::StopAndDeleteService(service);
            files_.push_back(kDriversFolder + service + L".sys");
            harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, kServicesKey + L"EventLog\\System\\" + service);
        }
        harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\SetupUtilsTest");
        for (const auto& file : files_) {
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(file.c_str());
        }
        RemoveDirectoryW(folder_.c_str());
        RecordingLog ignored;
        DeleteInfLocation(kId, ignored);
        DeleteInfLocation(kDefaultComponentId, ignored);
    }

    // Removed at the end with its staged copy (Wine stages under the INF's own name) and its .pnf.
    std::wstring WriteInf(const std::wstring& name, const std::string& text) {
        harness::WriteTextFile(folder_ + name, text);
        files_.insert(files_.end(), {folder_ + name, kInfFolder + name,
                                     kInfFolder + name.substr(0, name.size() - 3) + L"pnf"});
        return folder_ + name;
    }
    // <service>.inf ("none.inf" without a service), with the driver file it copies beside it.
    std::wstring WriteDriverInf(const std::string& service, bool copyFiles = true,
                                harness::DriverInfOptions options = {}) {
        const std::wstring name(service.begin(), service.end());
        options.service = service;
        options.copyFiles = copyFiles;
        services_.push_back(name);
        if (copyFiles) {
            files_.push_back(folder_ + name + L".sys");
            EXPECT_TRUE(CopyFileW(harness::TestDriverPath().c_str(), files_.back().c_str(), FALSE));
        }
        return WriteInf((name.empty() ? L"none" : name) + L".inf", harness::DriverInf(options));
    }
    DWORD Install(const std::wstring& infPath, unsigned flags = 0) {
        log_.lines.clear();
        return InstallService(infPath, kId, nullptr, flags, log_);
    }

    const std::wstring folder_ = harness::MakeTempFolder(L"inst");
    const std::wstring logPath_ = folder_ + L"install.log";
    std::vector<std::wstring> services_;
    std::vector<std::wstring> files_{logPath_};
    RecordingLog log_;
};

TEST_F(InstallServiceTest, StagesCopiesRegistersStartsAndRestartsTheDriver) {
    harness::DriverInfOptions options;
    options.addReg = true;
    const std::wstring inf = WriteDriverInf("isvc", true, options);
    // A staged INF marked read-only and hidden is made replaceable first.
    const std::wstring locked = kInfFolder + L"oem9931.inf";
    harness::WriteTextFile(locked, "[Version]\r\n");
    files_.push_back(locked);
    ASSERT_TRUE(SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));

    ASSERT_EQ(Install(inf), 0u);
    const std::wstring copy = L":'" + folder_ + L"isvc.sys' => '" + kDriversFolder + L"isvc.sys' ";
    EXPECT_TRUE(InOrder(log_.lines, {L"InstallService start.", L"SetFileAttributes Success: oem9931.inf",
                                     L"SetupOpenInfFile success: " + kInfFolder + L"isvc.inf",
                                     L"SaveInfFileLocation success", L"Start copy" + copy + L"[0:0]",
                                     L"StartDriver success", L"Install driver isvc success."}));
    EXPECT_EQ(GetFileAttributesW(locked.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), 0u);
    EXPECT_EQ(InfLocation(), kInfFolder + L"isvc.inf");
    const std::wstring values = harness::DriverInfRegistryKey(L"isvc") + L"\\Settings";
    EXPECT_EQ(harness::ReadRegistryString(HKEY_LOCAL_MACHINE, values, L"Mode"), L"normal");
    ASSERT_EQ(harness::WaitForServiceState(L"isvc", kRunning), kRunning);

    // Wine cannot overwrite the image of a loaded driver (a sharing violation,
    // 0x20) where Windows would replace it at the next restart: the copy
    // error aborts the install section with 1003.
    EXPECT_EQ(Install(inf), static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE));
    EXPECT_EQ(log_.lines.back(), L"Error copy" + copy + L"[0:20]");

    // Without the copy the running driver is stopped and started again.
    std::string text = harness::DriverInf("isvc");
    EXPECT_EQ(Install(WriteInf(L"isvc2.inf", text)), 0u);
    EXPECT_EQ(log_.lines.back(), L"Install driver isvc success.");
    EXPECT_EQ(harness::WaitForServiceState(L"isvc", kRunning), kRunning);

    // Pointed at a driver image that is not there, the running driver is
    // stopped and cannot start again; had it not been stopped, the start would
    // have found it running and passed. Wine reports 1114 (Windows: 2).
    text.replace(text.find("%12%\\isvc.sys"), 13, "%12%\\isvcgone.sys");
    EXPECT_EQ(Install(WriteInf(L"isvc3.inf", text)), static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    EXPECT_EQ(log_.lines.back(), L"error 1114: StartService");
    EXPECT_EQ(harness::ReadRegistryString(HKEY_LOCAL_MACHINE, kServicesKey + L"isvc", L"ImagePath"),
              kDriversFolder + L"isvcgone.sys");
    EXPECT_EQ(harness::WaitForServiceState(L"isvc", kStopped), kStopped);
}

TEST_F(InstallServiceTest, DefaultSectionFlagsAndFailures) {
    // No INF, or no AddService line (also when not starting): nothing staged, nothing recorded.
    EXPECT_EQ(Install(folder_ + L"missing.inf"), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(log_.lines.back(), L"ComponentID:" + kId);
    for (unsigned flags : {0x0u, 0x20u}) {
        EXPECT_EQ(Install(WriteDriverInf("", false), flags), 0xE0000102u) << flags; // ERROR_LINE_NOT_FOUND
        EXPECT_EQ(log_.lines.back(), L"SetupFindFirstLine('Driver_Install.Services',AddService)") << flags;
    }
    EXPECT_EQ(FileBytes(kInfFolder + L"none.inf"), "<missing>");
    EXPECT_FALSE(InfLocation().has_value());

    // Without a manufacturer: DefaultInstall and DefaultInstall.Services; 0x20: installed, not started.
    harness::DriverInfOptions options;
    options.manufacturer = false;
    ASSERT_EQ(Install(WriteDriverInf("isvcdef", true, options), 0x20), 0u);
    EXPECT_TRUE(InOrder(log_.lines, {L"SetupFindFirstLine('Manufacturer')"}));
    EXPECT_EQ(FileBytes(kDriversFolder + L"isvcdef.sys"), FileBytes(harness::TestDriverPath()));
    EXPECT_EQ(Lines(log_.lines.end() - 2, log_.lines.end()),
              (Lines{L"OpenSCManager success", L"Install driver isvcdef success."}));
    EXPECT_EQ(harness::WaitForServiceState(L"isvcdef", kStopped), kStopped);
    EXPECT_EQ(InfLocation(), kInfFolder + L"isvcdef.inf");

    // 0x1: the package has no service of its own, whatever its INF says.
    ASSERT_EQ(Install(WriteDriverInf("isvcskip", false), 0x1), 0u);
    EXPECT_EQ(Lines(log_.lines.end() - 2, log_.lines.end()),
              (Lines{L"SetupInstallFromInfSection success", L"Install driver (null) success."}));
    EXPECT_EQ(harness::ServiceState(L"isvcskip"), 0u);
    EXPECT_EQ(InfLocation(), kInfFolder + L"isvcskip.inf");

    // A delete or any other queue operation but a copy aborts: see the queue callback test.
}

TEST_F(InstallServiceTest, UnreadableStagedCopyIsEmptiedAndStagedAgain) {
    const std::wstring inf = WriteDriverInf("isvcchk", false);
    const std::wstring damaged = kInfFolder + L"isvcchk.inf";
    harness::WriteTextFile(damaged, "\x7f\x01 not an INF at all\r\n");

    // The emptied copy still holds the INF's name, so Wine stages the INF as an oemN.inf.
    std::optional<std::wstring> staged = CheckStagedInf(InfPath{inf, folder_}, damaged, log_);
    ASSERT_TRUE(staged.has_value());
    files_.insert(files_.end(), {*staged, staged->substr(0, staged->size() - 3) + L"pnf"});
    EXPECT_EQ(log_.lines, (Lines{L"SetupOpenInfFile failure: " + damaged,
                                 L"CopyOemInf: Going to call SetupCopyOEMInf (1-st time)",
                                 L"CopyOemInf second call success: " + *staged}));
    EXPECT_EQ(FileBytes(damaged), "");
    EXPECT_EQ(FileBytes(*staged), FileBytes(inf));
}

TEST(InstallServiceQueueCallback, ReportsCopiesAndAbortsEverythingElse) {
    RecordingLog log;
    FILEPATHS_W paths{L"C:\\windows\\system32\\drivers\\a.sys", L"C:\\pkg\\a.sys", 0x20, 0x400};
    auto call = [&](UINT notification, UINT_PTR param2 = 0) {
        SetLastError(0xBEEF);
        return InstallQueueCallback(&log, notification, reinterpret_cast<UINT_PTR>(&paths), param2);
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
    EXPECT_EQ(log.lines, (Lines{L"Start copy operation: 3.", L"Start copy" + route, L"End copy" + route,
                                L"End copy operation.", L"Error copy" + route}));
}

using KSInstInstallTest = InstallServiceTest;

TEST_F(KSInstInstallTest, InstallsAdvancesProgressAndReportsFailureAs555) {
    harness::ActionSession session;
    harness::MessageRecorder& messages = session.messages();
    auto run = [&](const std::wstring& data) {
        messages.Clear();
        return session.Run("KSInstInstall", data);
    };
    auto fields = [&](UINT type) { return messages.FieldsOf(type); };
    const std::vector<Lines> progress{{L"1", L"0", L"0", L"0"}, {L"2", L"3000000", L"0", L"0"}};
    const std::wstring sep(1, L'\x0001'), prefix = folder_ + sep + L"ksinst.inf" + sep + kId;
    const std::wstring flagsAndTicks = sep + L"0" + sep + L"3000000";

    // Data without all its fields: nothing installed, nothing said.
    for (const std::wstring& data : {std::wstring(), prefix, prefix + sep + L"0"}) {
        EXPECT_EQ(run(data), 1603u) << data.size();
        EXPECT_TRUE(messages.all().empty()) << data.size();
    }

    // No INF: the progress still advances, then error 555 with the code and the system's text for it.
    EXPECT_EQ(run(prefix + flagsAndTicks), 1603u);
    EXPECT_EQ(messages.InfoTexts().back(), kInfo + L"ComponentID:" + kId);
    EXPECT_EQ(fields(INSTALLMESSAGE_PROGRESS), progress);
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                       FORMAT_MESSAGE_FROM_SYSTEM,
                   nullptr, ERROR_INVALID_HANDLE, 0x400, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    LocalMemory owner(text);
    ASSERT_NE(text, nullptr) << "Wine has a text for 6";
    EXPECT_EQ(fields(INSTALLMESSAGE_ERROR), (std::vector<Lines>{{L"555", L"6", text}}));
    EXPECT_EQ(messages.all().back().type, static_cast<UINT>(INSTALLMESSAGE_ERROR)) << "after the progress";
    EXPECT_FALSE(InfLocation().has_value());

    // The long name of a "short|long" INF name is installed.
    WriteDriverInf("ksinst");
    EXPECT_EQ(run(folder_ + sep + L"KSINST~1.INF|ksinst.inf" + sep + kId + flagsAndTicks), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(), {kInfo + L"FullFileName:" + folder_ + L"ksinst.inf",
                                               kInfo + L"Install driver ksinst success."}));
    EXPECT_EQ(fields(INSTALLMESSAGE_PROGRESS), progress);
    EXPECT_TRUE(messages.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(InfLocation(), kInfFolder + L"ksinst.inf");
}

using KSInstallWTest = InstallServiceTest;

// rundll32 looks ",KSInstallW" up as KSInstallWW first (the exports test
// shows it is KSInstallW) and calls it with its wide command line.
TEST_F(KSInstallWTest, InstallsWithAFileLogAndUndoesAFailure) {
    const std::wstring inf = WriteDriverInf("kscmd");
    EXPECT_EQ(RunDll32(L"KSInstallW", inf, logPath_), 0);
    EXPECT_TRUE(
        InOrder(FileLines(logPath_), {kInfo + L"InstallService start.", kInfo + L"FullFileName:" + inf,
                                      kInfo + L"ComponentID:" + kId, kInfo + L"StartDriver success",
                                      kInfo + L"Install driver kscmd success."}));
    EXPECT_EQ(InfLocation(), kInfFolder + L"kscmd.inf");

    // Without a component id the record's value is named "ComponentID".
    KSInstallW(L"\"" + WriteDriverInf("kscmdid") + L"\"");
    EXPECT_EQ(InfLocation(L"ComponentID"), kInfFolder + L"kscmdid.inf");

    // No driver image: the service is created and cannot start (Wine: 1114, Windows: 2).
    KSInstallW(WriteDriverInf("kscmdbad", false) + L" " + kId + L" " + logPath_);
    const Lines log = FileLines(logPath_);
    EXPECT_TRUE(InOrder(log, {L"KSInstall64:error 0x45A: StartService.",
                              L"KSInstall64:error 0x45A: InstallService: 0x45A.",
                              kInfo + L"KSInstUninstall start."}));
    EXPECT_EQ(log.back(), kInfo + L"Uninstall driver kscmdbad success.");
    EXPECT_EQ(harness::WaitForServiceState(L"kscmdbad", 0), 0u);
    EXPECT_EQ(FileBytes(kInfFolder + L"kscmdbad.inf"), "<missing>");
    EXPECT_FALSE(InfLocation().has_value());
}

} // namespace
} // namespace setuputils
