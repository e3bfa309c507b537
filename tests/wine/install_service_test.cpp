// Driver package installation against the prefix's own setup API, service
// manager and registry: InstallService, its file queue callback and the check
// of the staged INF, and the deferred and command-line entry points.
#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <windows.h>

#include "driver_inf.h"
#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "frame/handles.h"
#include "frame/install_log.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace setuputils {
namespace {

using Lines = std::vector<std::wstring>;

const std::wstring kInfFolder = L"C:\\windows\\inf\\";
const std::wstring kDriversFolder = L"C:\\windows\\system32\\drivers\\";
const std::wstring kServicesKey = L"SYSTEM\\CurrentControlSet\\Services\\";
constexpr DWORD kRunning = SERVICE_RUNNING;
constexpr DWORD kStopped = SERVICE_STOPPED;

// Every line in order; an error line carries the last-error value as the file log writes it.
class RecordingLog final : public InstallLog {
public:
    void NeedReboot() override { lines.push_back(L"<reboot>"); }
    void Info(const wchar_t* text) override { lines.push_back(text); }
    void Error(const wchar_t* text) override {
        wchar_t code[16];
        swprintf(code, 16, L"0x%X", static_cast<unsigned>(GetLastError()));
        lines.push_back(L"error " + std::wstring(code) + L": " + text);
    }
    Lines lines;
};

// `lines` without those that start with one of `prefixes`.
Lines Without(Lines lines, std::initializer_list<const wchar_t*> prefixes) {
    for (const wchar_t* prefix : prefixes) {
        std::erase_if(lines, [&](const std::wstring& line) { return line.rfind(prefix, 0) == 0; });
    }
    return lines;
}

// Names of the plain files in `folder`.
std::set<std::wstring> FilesIn(const std::wstring& folder) {
    std::set<std::wstring> names;
    WIN32_FIND_DATAW found{};
    HANDLE search = FindFirstFileW((folder + L"*").c_str(), &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found)) {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            names.insert(found.cFileName);
        }
    }
    FindClose(search);
    return names;
}

std::string FileBytes(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES ? harness::ReadTextFile(path)
                                                                       : "<missing>";
}

ServiceHandle OpenService(const std::wstring& name, DWORD access) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    return ServiceHandle(OpenServiceW(manager.get(), name.c_str(), access));
}

// The state once it is `wanted`, or after five seconds of waiting for it; 0 for no service.
DWORD WaitForState(const std::wstring& name, DWORD wanted = 0) {
    SERVICE_STATUS status{};
    for (int i = 0; i < 50 && (i == 0 || status.dwCurrentState != wanted); Sleep(100), ++i) {
        ServiceHandle service = OpenService(name, SERVICE_QUERY_STATUS);
        status.dwCurrentState =
            service && QueryServiceStatus(service.get(), &status) ? status.dwCurrentState : 0;
    }
    return status.dwCurrentState;
}

std::optional<std::wstring> ImagePath(const std::wstring& service) {
    return harness::ReadRegistryString(HKEY_LOCAL_MACHINE, kServicesKey + service, L"ImagePath");
}

std::optional<std::wstring> InfLocation(const std::wstring& componentId) {
    return harness::ReadRegistryString(HKEY_LOCAL_MACHINE, InfLocationKeyPath(), componentId);
}

std::set<std::wstring> LocationValues() {
    std::set<std::wstring> names;
    RegKey key;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str(), 0, KEY_READ, key.put());
    wchar_t name[256];
    for (DWORD i = 0, length = 256; key && RegEnumValueW(key.get(), i, name, &length, nullptr, nullptr,
                                                         nullptr, nullptr) == ERROR_SUCCESS;
         ++i, length = 256) {
        names.insert(name);
    }
    return names;
}

// Writes INFs into a fresh folder and, at the end, removes everything an
// installation may have left: services, driver files, registry values and
// keys, staged INFs and their .pnf files, location values.
class DriverInstallTest : public ::testing::Test {
protected:
    ~DriverInstallTest() override {
        for (const auto& service : services_) {
            ServiceHandle handle = OpenService(service, SERVICE_ALL_ACCESS);
            SERVICE_STATUS status{};
            if (handle && ControlService(handle.get(), SERVICE_CONTROL_STOP, &status)) {
                WaitForState(service, kStopped);
            }
            DeleteService(handle.get());
            files_.push_back(kDriversFolder + service + L".sys");
            harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, harness::DriverInfRegistryKey(service));
            harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, kServicesKey + L"EventLog\\System\\" + service);
        }
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\SetupUtilsTest");
        for (const auto& name : NewInfFiles()) {
            files_.push_back(kInfFolder + name);
        }
        for (const auto& name : FilesIn(folder_)) {
            files_.push_back(folder_ + name);
        }
        for (const auto& file : files_) {
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(file.c_str());
        }
        RemoveDirectoryW(folder_.c_str());
        for (const auto& name : LocationValues()) {
            if (locationsBefore_.count(name) == 0) {
                RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str(), name.c_str());
            }
        }
        if (LocationValues().empty()) {
            RegDeleteKeyW(HKEY_LOCAL_MACHINE, InfLocationKeyPath().c_str());
        }
    }

    std::wstring WriteInf(const std::wstring& name, const std::string& text) {
        harness::WriteTextFile(folder_ + name, text);
        return folder_ + name;
    }
    // An INF for `options`, with the driver file it copies beside it.
    std::wstring WriteDriverInf(const std::wstring& name, const harness::DriverInfOptions& options,
                                const std::string& extraSections = "") {
        const std::wstring service(options.service.begin(), options.service.end());
        if (!service.empty()) {
            services_.insert(service);
        }
        if (options.copyFiles) {
            EXPECT_TRUE(
                CopyFileW(harness::TestDriverPath().c_str(), (folder_ + service + L".sys").c_str(), FALSE));
        }
        return WriteInf(name, harness::DriverInf(options) + extraSections);
    }
    DWORD Install(const std::wstring& infPath, const std::wstring& componentId, unsigned flags) {
        log_.lines.clear();
        return InstallService(infPath, componentId, nullptr, flags, log_);
    }
    std::set<std::wstring> NewInfFiles() const {
        std::set<std::wstring> added;
        for (const auto& name : FilesIn(kInfFolder)) {
            if (infsBefore_.count(name) == 0) {
                added.insert(name);
            }
        }
        return added;
    }

    const std::wstring folder_ = harness::MakeTempFolder(L"inst");
    const std::set<std::wstring> infsBefore_ = FilesIn(kInfFolder);
    const std::set<std::wstring> locationsBefore_ = LocationValues();
    std::set<std::wstring> services_;
    std::vector<std::wstring> files_;
    RecordingLog log_;
};

// The lines as the driver log's information template shows them.
Lines Informed(Lines lines) {
    for (auto& line : lines) {
        line.insert(0, L"KSInstall64:info: ");
    }
    return lines;
}

// The lines as the file log writes them.
std::string FileLogText(const Lines& lines) {
    std::string text;
    for (const auto& line : Informed(lines)) {
        text += std::string(line.begin(), line.end()) + "\r\n";
    }
    return text;
}

// What InstallService reports for a driver_inf INF with a manufacturer and
// CopyFiles, installed with flags 0.
Lines InstalledLines(const std::wstring& folder, const std::wstring& infName, const std::wstring& componentId,
                     const std::wstring& service) {
    const std::wstring staged = kInfFolder + infName;
    const std::wstring copy =
        L":'" + folder + service + L".sys' => '" + kDriversFolder + service + L".sys' [0:0]";
    return {L"InstallService start.",
            L"FullFileName:" + folder + infName,
            L"FullPath:" + folder,
            L"ComponentID:" + componentId,
            L"SetupOpenInfFile success",
            L"Found Manufacturer: Models",
            L"Found TargetOS: NTamd64",
            L"Found InstallSectionName: Driver_Install",
            L"Found Service: " + service,
            L"CopyOemInf: Going to call SetupCopyOEMInf (1-st time)",
            L"CopyOemInf success: " + staged,
            L"SetupOpenInfFile success: " + staged,
            L"SaveInfFileLocation success",
            L"Start copy operation: 1.",
            L"Start copy" + copy,
            L"End copy" + copy,
            L"End copy operation.",
            L"SetupInstallFromInfSection success",
            L"SetupInstallServicesFromInfSection success",
            L"OpenSCManager success",
            L"StartDriver success",
            L"Install driver " + service + L" success."};
}

// An INF of tests/harness/driver_inf for `service`, copying its driver file or not.
harness::DriverInfOptions Package(const std::string& service, bool copyFiles = true) {
    harness::DriverInfOptions options;
    options.service = service;
    options.copyFiles = copyFiles;
    return options;
}

class InstallServiceTest : public DriverInstallTest {};

TEST_F(InstallServiceTest, StagesCopiesRegistersAndStartsTheDriver) {
    harness::DriverInfOptions options = Package("isvcfull");
    options.addReg = true;
    const std::wstring inf = WriteDriverInf(L"isvcfull.inf", options);
    // A staged INF marked read-only and hidden is made replaceable first.
    const std::wstring locked = kInfFolder + L"oem9931.inf";
    harness::WriteTextFile(locked, "[Version]\r\n");
    ASSERT_TRUE(SetFileAttributesW(locked.c_str(), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN));

    ASSERT_EQ(Install(inf, L"{5A1F0C3E-0001}", 0), 0u);

    Lines expected = InstalledLines(folder_, L"isvcfull.inf", L"{5A1F0C3E-0001}", L"isvcfull");
    expected.insert(expected.begin() + 1, L"SetFileAttributes Success: oem9931.inf");
    EXPECT_EQ(log_.lines, expected);
    EXPECT_EQ(GetFileAttributesW(locked.c_str()) & (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN), 0u);
    // Wine stages under the INF's own name, not as oemN.inf, and precompiles it.
    EXPECT_EQ(NewInfFiles(), (std::set<std::wstring>{L"isvcfull.inf", L"isvcfull.pnf", L"oem9931.inf"}));
    EXPECT_EQ(FileBytes(kInfFolder + L"isvcfull.inf"), FileBytes(inf));
    EXPECT_EQ(InfLocation(L"{5A1F0C3E-0001}"), kInfFolder + L"isvcfull.inf");
    EXPECT_EQ(FileBytes(kDriversFolder + L"isvcfull.sys"), FileBytes(harness::TestDriverPath()));
    const std::wstring values = harness::DriverInfRegistryKey(L"isvcfull");
    EXPECT_EQ(harness::ReadRegistryString(HKEY_LOCAL_MACHINE, values + L"\\Settings", L"Mode"), L"normal");
    // Windows would store \SystemRoot\System32\drivers\...; Wine keeps the DOS path.
    EXPECT_EQ(ImagePath(L"isvcfull"), kDriversFolder + L"isvcfull.sys");
    EXPECT_EQ(WaitForState(L"isvcfull", kRunning), kRunning);
}

TEST_F(InstallServiceTest, RunningDriverIsStoppedAndStartedAgain) {
    const std::wstring inf = WriteDriverInf(L"isvcrun.inf", Package("isvcrun"));
    ASSERT_EQ(Install(inf, L"{5A1F0C3E-0002}", 0), 0u);
    ASSERT_EQ(WaitForState(L"isvcrun", kRunning), kRunning);

    // Wine cannot overwrite the image of a loaded driver (a sharing violation,
    // 0x20) where Windows would replace it at the next restart: the copy
    // error aborts the install section with 1003.
    EXPECT_EQ(Install(inf, L"{5A1F0C3E-0002}", 0), static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE));
    EXPECT_EQ(log_.lines.back(),
              L"Error copy:'" + folder_ + L"isvcrun.sys' => '" + kDriversFolder + L"isvcrun.sys' [0:20]");

    // The same package without the copy: stopped, started, running.
    std::string text = harness::DriverInf(Package("isvcrun"));
    text.erase(text.find("CopyFiles=Driver_Files\r\n"), 24);
    EXPECT_EQ(Install(WriteInf(L"isvcrun2.inf", text), L"{5A1F0C3E-0002}", 0), 0u);
    EXPECT_EQ(Lines(log_.lines.end() - 2, log_.lines.end()),
              (Lines{L"StartDriver success", L"Install driver isvcrun success."}));
    EXPECT_EQ(WaitForState(L"isvcrun", kRunning), kRunning);

    // Pointed at a driver image that is not there, the running service is
    // stopped and cannot start again; had it not been stopped, the start would
    // have found it running and passed. Wine reports 1114 (Windows: 2).
    text.replace(text.find("%12%\\isvcrun.sys"), 16, "%12%\\isvcgone.sys");
    EXPECT_EQ(Install(WriteInf(L"isvcrun3.inf", text), L"{5A1F0C3E-0002}", 0),
              static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    EXPECT_EQ(log_.lines.back(), L"error 0x45A: StartService");
    EXPECT_EQ(ImagePath(L"isvcrun"), kDriversFolder + L"isvcgone.sys");
    EXPECT_EQ(WaitForState(L"isvcrun", kStopped), kStopped);
}

TEST_F(InstallServiceTest, DefaultInstallSectionAndFlags) {
    harness::DriverInfOptions options = Package("isvcdef");
    options.manufacturer = false;
    const std::wstring inf = WriteDriverInf(L"isvcdef.inf", options);

    // Without a manufacturer: DefaultInstall and DefaultInstall.Services; 0x20: not started.
    ASSERT_EQ(Install(inf, L"{5A1F0C3E-0003}", 0x20), 0u);
    Lines expected =
        Without(InstalledLines(folder_, L"isvcdef.inf", L"{5A1F0C3E-0003}", L"isvcdef"),
                {L"Found Manufacturer", L"Found TargetOS", L"Found InstallSection", L"StartDriver"});
    expected.insert(expected.begin() + 5, L"SetupFindFirstLine('Manufacturer')");
    EXPECT_EQ(log_.lines, expected);
    EXPECT_EQ(ImagePath(L"isvcdef"), kDriversFolder + L"isvcdef.sys");
    EXPECT_EQ(WaitForState(L"isvcdef", kStopped), kStopped);
    EXPECT_EQ(InfLocation(L"{5A1F0C3E-0003}"), kInfFolder + L"isvcdef.inf");

    // 0x1: the package has no service of its own, whatever its INF says.
    const std::wstring skip = WriteDriverInf(L"isvcskip.inf", Package("isvcskip", false));
    ASSERT_EQ(Install(skip, L"{5A1F0C3E-0004}", 0x1), 0u);
    expected = Without(InstalledLines(folder_, L"isvcskip.inf", L"{5A1F0C3E-0004}", L"isvcskip"),
                       {L"Found Service", L"Start copy", L"End copy", L"SetupInstallServices",
                        L"OpenSCManager", L"StartDriver", L"Install driver"});
    expected.push_back(L"Install driver (null) success.");
    EXPECT_EQ(log_.lines, expected);
    EXPECT_EQ(WaitForState(L"isvcskip"), 0u);
    EXPECT_EQ(InfLocation(L"{5A1F0C3E-0004}"), kInfFolder + L"isvcskip.inf");
}

TEST_F(InstallServiceTest, StopsBeforeStagingWithoutInfOrService) {
    const std::wstring id = L"{5A1F0C3E-0005}";
    EXPECT_EQ(Install(folder_ + L"isvcmissing.inf", id, 0), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    Lines expected = InstalledLines(folder_, L"isvcmissing.inf", id, L"");
    EXPECT_EQ(log_.lines, Lines(expected.begin(), expected.begin() + 4));

    // No AddService line: the error of the lookup (ERROR_LINE_NOT_FOUND), also when not starting.
    const std::wstring inf = WriteDriverInf(L"isvcnone.inf", Package("", false));
    expected = InstalledLines(folder_, L"isvcnone.inf", id, L"");
    expected.resize(8);
    expected.push_back(L"SetupFindFirstLine('Driver_Install.Services',AddService)");
    for (unsigned flags : {0x0u, 0x20u}) {
        EXPECT_EQ(Install(inf, id, flags), 0xE0000102u) << flags;
        EXPECT_EQ(log_.lines, expected) << flags;
    }
    EXPECT_TRUE(NewInfFiles().empty());
    EXPECT_FALSE(InfLocation(id).has_value());
}

TEST_F(InstallServiceTest, DeleteInTheInstallSectionAbortsTheInstallation) {
    const std::wstring stale = kDriversFolder + L"isvcstale.sys";
    harness::WriteTextFile(stale, "stale");
    files_.push_back(stale);
    harness::DriverInfOptions options = Package("", false);
    options.extraInstallLines = "DelFiles=Driver_Del\r\n";
    const std::wstring inf = WriteDriverInf(L"isvcdel.inf", options, "[Driver_Del]\r\nisvcstale.sys\r\n\r\n");

    // Wine hands the callback's 1003 back as the error of the install section.
    EXPECT_EQ(Install(inf, L"{5A1F0C3E-0006}", 0x1), static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE));
    // The delete sub-queue opens like any other; its first delete aborts.
    EXPECT_EQ(Lines(log_.lines.end() - 2, log_.lines.end()),
              (Lines{L"SaveInfFileLocation success", L"Start copy operation: 1."}));
    EXPECT_EQ(FileBytes(stale), "stale");
}

TEST_F(InstallServiceTest, UnreadableStagedCopyIsEmptiedAndStagedAgain) {
    const std::wstring inf = WriteDriverInf(L"isvcchk.inf", Package("isvcchk"));
    const std::wstring damaged = kInfFolder + L"isvcchk.inf";
    harness::WriteTextFile(damaged, "\x7f\x01 not an INF at all\r\n");

    std::optional<std::wstring> staged = CheckStagedInf(InfPath{inf, folder_}, damaged, log_);

    // The emptied copy still holds the INF's name, so Wine stages the INF as an oemN.inf.
    ASSERT_TRUE(staged.has_value());
    EXPECT_EQ(log_.lines, (Lines{L"SetupOpenInfFile failure: " + damaged,
                                 L"CopyOemInf: Going to call SetupCopyOEMInf (1-st time)",
                                 L"CopyOemInf second call success: " + *staged}));
    EXPECT_EQ(FileBytes(damaged), "");
    EXPECT_EQ(staged->rfind(kInfFolder + L"oem", 0), 0u) << *staged;
    EXPECT_EQ(FileBytes(*staged), FileBytes(inf));

    // A readable copy is kept as it is.
    log_.lines.clear();
    EXPECT_EQ(CheckStagedInf(InfPath{inf, folder_}, *staged, log_), staged);
    EXPECT_EQ(log_.lines, (Lines{L"SetupOpenInfFile success: " + *staged}));
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
    EXPECT_EQ(call(SPFILENOTIFY_COPYERROR), static_cast<UINT>(FILEOP_ABORT));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE));
    const std::wstring route = L":'C:\\pkg\\a.sys' => 'C:\\windows\\system32\\drivers\\a.sys' [400:20]";
    EXPECT_EQ(log.lines, (Lines{L"Start copy operation: 3.", L"Start copy" + route, L"End copy" + route,
                                L"End copy operation.", L"Error copy" + route}));

    // Deletes, renames and anything else abort, and say nothing.
    log.lines.clear();
    for (UINT notification : {SPFILENOTIFY_STARTDELETE, SPFILENOTIFY_ENDDELETE, SPFILENOTIFY_DELETEERROR,
                              SPFILENOTIFY_STARTRENAME, SPFILENOTIFY_RENAMEERROR, 0x1000}) {
        EXPECT_EQ(call(notification), static_cast<UINT>(FILEOP_ABORT)) << notification;
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_CAN_NOT_COMPLETE)) << notification;
    }
    EXPECT_TRUE(log.lines.empty());
}

class KSInstInstallTest : public DriverInstallTest {
protected:
    KSInstInstallTest() {
        package_.AddStandardTables();
        package_.Commit();
        session_ = std::make_unique<harness::TestSession>(package_);
    }
    ~KSInstInstallTest() override {
        session_.reset();
        package_.Close();
        DeleteFileW(package_.path().c_str());
        RemoveDirectoryW(package_.path().substr(0, package_.path().find_last_of(L'\\')).c_str());
    }
    UINT Run(const std::wstring& data) {
        session_->SetProperty(L"CustomActionData", data);
        messages_.Clear();
        return library_.Action("KSInstInstall")(session_->get());
    }
    // Fields 1 and up of each message of `type`.
    std::vector<Lines> Fields(UINT type) const {
        std::vector<Lines> fields;
        for (const auto& message : messages_.OfType(type)) {
            fields.emplace_back(message.fields.begin() + 1, message.fields.end());
        }
        return fields;
    }

    harness::SetupUtilsLibrary library_;
    harness::TestPackage package_;
    std::unique_ptr<harness::TestSession> session_;
    harness::MessageRecorder messages_;
};

const std::wstring kSeparator(1, L'\x0001');
const std::vector<Lines> kProgressPair{{L"1", L"0", L"0", L"0"}, {L"2", L"3000000", L"0", L"0"}};

TEST_F(KSInstInstallTest, InstallsTheLongNameAndAdvancesProgress) {
    WriteDriverInf(L"ksinst.inf", Package("ksinst"));
    const std::wstring data = folder_ + kSeparator + L"KSINST~1.INF|ksinst.inf" + kSeparator +
                              L"{5A1F0C3E-0010}" + kSeparator + L"0" + kSeparator + L"3000000";

    EXPECT_EQ(Run(data), 0u);

    EXPECT_EQ(messages_.InfoTexts(),
              Informed(InstalledLines(folder_, L"ksinst.inf", L"{5A1F0C3E-0010}", L"ksinst")));
    EXPECT_EQ(Fields(INSTALLMESSAGE_PROGRESS), kProgressPair);
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(WaitForState(L"ksinst", kRunning), kRunning);
    EXPECT_EQ(InfLocation(L"{5A1F0C3E-0010}"), kInfFolder + L"ksinst.inf");
}

TEST_F(KSInstInstallTest, FailureIsError555WithTheSystemTextAndBadDataIsSilent) {
    const std::wstring prefix = folder_ + kSeparator + L"ksnone.inf" + kSeparator + L"{5A1F0C3E-0011}";
    EXPECT_EQ(Run(prefix + kSeparator + L"0" + kSeparator + L"3000000"), 1603u);

    const Lines opening = InstalledLines(folder_, L"ksnone.inf", L"{5A1F0C3E-0011}", L"");
    EXPECT_EQ(messages_.InfoTexts(), Informed(Lines(opening.begin(), opening.begin() + 4)));
    EXPECT_EQ(Fields(INSTALLMESSAGE_PROGRESS), kProgressPair);
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS |
                       FORMAT_MESSAGE_FROM_SYSTEM,
                   nullptr, ERROR_INVALID_HANDLE, 0x400, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    LocalMemory owner(text);
    ASSERT_NE(text, nullptr) << "Wine has a text for 6";
    EXPECT_EQ(Fields(INSTALLMESSAGE_ERROR), (std::vector<Lines>{{L"555", L"6", text}}));
    EXPECT_EQ(messages_.all().back().type, static_cast<UINT>(INSTALLMESSAGE_ERROR)) << "after the progress";

    // Data without all its fields: nothing installed, nothing said.
    for (const std::wstring& data : {std::wstring(), prefix, prefix + kSeparator + L"0"}) {
        EXPECT_EQ(Run(data), 1603u) << data.size();
        EXPECT_TRUE(messages_.all().empty()) << data.size();
    }
    EXPECT_TRUE(NewInfFiles().empty());
    EXPECT_FALSE(InfLocation(L"{5A1F0C3E-0011}").has_value());
}

class KSInstallWTest : public DriverInstallTest {
protected:
    // rundll32 of the prefix (64-bit), run to its end; its exit code.
    static DWORD RunDll32(const std::wstring& entry, const std::wstring& arguments) {
        std::wstring commandLine =
            L"rundll32.exe \"" + harness::SetupUtilsLibrary::Path() + L"\"," + entry + L" " + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                            &startup, &process)) {
            return GetLastError();
        }
        EXPECT_EQ(WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
        DWORD exitCode = 0;
        GetExitCodeProcess(process.hProcess, &exitCode);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        return exitCode;
    }
    void Call(std::wstring commandLine) {
        library_.CommandLineEntry("KSInstallW")(nullptr, nullptr, commandLine.data(), SW_HIDE);
    }

    harness::SetupUtilsLibrary library_;
    const std::wstring logPath_ = folder_ + L"install.log";
};

// rundll32 appends W to the entry name it is given and calls that export with
// its wide command line: "setuputils.dll,KSInstall" reaches KSInstallW.
TEST_F(KSInstallWTest, InstallsFromTheCommandLineWithAFileLog) {
    const std::wstring inf = WriteDriverInf(L"kscmd.inf", Package("kscmd"));

    EXPECT_EQ(RunDll32(L"KSInstall", inf + L" {5A1F0C3E-0020} " + logPath_), 0u);

    EXPECT_EQ(FileBytes(logPath_),
              FileLogText(InstalledLines(folder_, L"kscmd.inf", L"{5A1F0C3E-0020}", L"kscmd")));
    EXPECT_EQ(WaitForState(L"kscmd", kRunning), kRunning);
    EXPECT_EQ(InfLocation(L"{5A1F0C3E-0020}"), kInfFolder + L"kscmd.inf");

    // Without a component id the record's value is named "ComponentID".
    const std::wstring second = WriteDriverInf(L"kscmdid.inf", Package("kscmdid"));
    Call(L"\"" + second + L"\"");
    EXPECT_EQ(InfLocation(L"ComponentID"), kInfFolder + L"kscmdid.inf");
    EXPECT_EQ(WaitForState(L"kscmdid", kRunning), kRunning);
}

TEST_F(KSInstallWTest, FailedInstallationIsUndone) {
    // No driver image: the service is created and cannot start (Wine: 1114, Windows: 2).
    const std::wstring inf = WriteDriverInf(L"kscmdbad.inf", Package("kscmdbad", false));

    Call(inf + L" {5A1F0C3E-0021} " + logPath_);

    const Lines installed = Without(InstalledLines(folder_, L"kscmdbad.inf", L"{5A1F0C3E-0021}", L"kscmdbad"),
                                    {L"Start copy", L"End copy", L"StartDriver", L"Install driver"});
    const std::string expected = FileLogText(installed) +
                                 "KSInstall64:error 0x45A: StartService.\r\n"
                                 "KSInstall64:error 0x45A: InstallService: 0x45A.\r\n"
                                 "KSInstall64:info: KSInstUninstall start.\r\n";
    const std::string log = FileBytes(logPath_);
    EXPECT_EQ(log.substr(0, expected.size()), expected);
    const std::string last = "KSInstall64:info: Uninstall driver kscmdbad success.\r\n";
    EXPECT_EQ(log.substr(log.size() - std::min(log.size(), last.size())), last);
    EXPECT_EQ(WaitForState(L"kscmdbad"), 0u);
    EXPECT_TRUE(NewInfFiles().empty());
    EXPECT_FALSE(InfLocation(L"{5A1F0C3E-0021}").has_value());
}

// "rundll32 setuputils.dll,KSInstallW" makes rundll32 look for KSInstallWW
// first (then KSInstallWA, then KSInstallW as an ANSI entry); the library
// exports KSInstallWW so that this spelling reaches the wide entry as well.
TEST_F(KSInstallWTest, InstallsThroughTheEntryNameWithItsW) {
    const std::wstring inf = WriteDriverInf(L"kscmdw.inf", Package("kscmdw"));

    EXPECT_EQ(RunDll32(L"KSInstallW", inf + L" {5A1F0C3E-0022} " + logPath_), 0u);

    EXPECT_EQ(FileBytes(logPath_),
              FileLogText(InstalledLines(folder_, L"kscmdw.inf", L"{5A1F0C3E-0022}", L"kscmdw")));
    EXPECT_EQ(WaitForState(L"kscmdw", kRunning), kRunning);
}

} // namespace
} // namespace setuputils
