// Removal of INF driver packages against the prefix's real service manager,
// setup API and registry: RemoveDriverPackage and its removers, and the
// KSInstUninstall, KSUninstallW and KSInstCleanUp entry points.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <process.h>
#include <windows.h>

#include "driver_inf.h"
#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "drivers/remove_driver_package.h"
#include "drivers/removers.h"
#include "frame/product_codes.h"
#include "action_session.h"
#include "machine.h"

namespace harness {
namespace {

using Texts = std::vector<std::wstring>;

const std::wstring kDrivers = L"C:\\windows\\system32\\drivers\\";
const std::wstring kInfs = L"C:\\windows\\inf\\";
const std::wstring kEventLogKey = L"System\\CurrentControlSet\\Services\\EventLog\\System\\";
constexpr wchar_t kSessionManager[] = L"System\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingRenames[] = L"PendingFileRenameOperations";
const std::wstring kTestKey = L"SOFTWARE\\SetupUtilsTest";
constexpr DWORD kRunning = SERVICE_RUNNING;
const std::wstring kLocationKey = setuputils::InfLocationKeyPath();

// The entries of PendingFileRenameOperations: source, target, source, target...
// An empty target deletes the source.
Texts PendingRenames() {
    std::wstring data(1 << 16, L'\0');
    DWORD size = static_cast<DWORD>(data.size() * sizeof(wchar_t));
    RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, RRF_RT_REG_MULTI_SZ, nullptr,
                 data.data(), &size);
    Texts entries;
    for (const wchar_t* entry = data.c_str(); *entry != L'\0'; entry += entries.back().size() + 1) {
        entry += entries.emplace_back(entry).size() + 1;
        entries.emplace_back(entry);
    }
    return entries;
}

Texts FilesIn(const std::wstring& pattern) {
    Texts names;
    WIN32_FIND_DATAW found{};
    HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found)) {
        names.push_back(found.cFileName);
    }
    FindClose(search);
    return names;
}

// A driver log file as "\n"-ended lines without the "KSInstall64:" that starts
// each of them; the file itself ends its lines in CR LF (text mode).
std::wstring ReadLog(const std::wstring& path) {
    const std::string file = ReadTextFile(path);
    std::wstring text;
    for (std::size_t start = 0, end = 0; start < file.size(); start = end + 2) {
        end = file.find("\r\n", start);
        if (end == std::string::npos || file.compare(start, 12, "KSInstall64:") != 0) {
            ADD_FAILURE() << "not a log line: " << file.substr(start);
            break;
        }
        text.append(file.begin() + start + 12, file.begin() + end) += L'\n';
    }
    return text;
}

// Whether `log` holds each of `blocks` (one or more whole lines), in this order.
::testing::AssertionResult InOrder(const std::wstring& log, const Texts& blocks) {
    const std::wstring text = L"\n" + log;
    std::size_t at = 0;
    for (const auto& block : blocks) {
        if ((at = text.find(L"\n" + block + L"\n", at)) == std::wstring::npos) {
            return ::testing::AssertionFailure() << "no \"" << block << "\" in order in:\n" << log;
        }
        at += block.size() + 1;
    }
    return ::testing::AssertionSuccess();
}

// Each test works in its own folder and names what it may leave behind: its
// packages (service, driver file, event-log key, staged INF), component ids
// and registry keys. They go, and so do the restart operations the test
// added and their files, however the test ended.
class RemoveDriverPackageTest : public ::testing::Test {
protected:
    ~RemoveDriverPackageTest() override {
        setuputils::FileLog quiet(nullptr);
        for (const auto& name : names_) {
            StopAndDeleteService(name);
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kEventLogKey + name);
            for (const auto& file :
                 {kDrivers + name + L".sys", kInfs + name + L".inf", kInfs + name + L".pnf"}) {
                DeleteFileW(file.c_str());
            }
        }
        for (const auto& id : ids_) {
            setuputils::DeleteInfLocation(id, quiet);
        }
        for (const auto& [root, key] : keys_) {
            DeleteRegistryTree(root, key);
        }
        // The system appends; what follows the entries found at the start is the test's.
        const Texts pending = PendingRenames();
        std::wstring data;
        for (std::size_t i = 0; i < pending.size(); ++i) {
            if (i < pendingAtStart_.size()) {
                data += pending[i] + L'\0';
            } else if (i % 2 == 0) {
                DeleteFileW(pending[i].substr(4).c_str());
            }
        }
        if (data.empty()) {
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
        } else {
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, REG_MULTI_SZ, data.c_str(),
                            static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t)));
        }
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    static bool Exists(const std::wstring& path) {
        return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
    }
    static std::optional<std::wstring> Location(const std::wstring& id) {
        return ReadRegistryString(HKEY_LOCAL_MACHINE, kLocationKey, id);
    }
    static std::string Replaced(std::string text, const std::string& from, const std::string& to) {
        return text.replace(text.find(from), from.size(), to);
    }
    std::wstring NewId() { return ids_.emplace_back(NewGuid()); }

    // The INF of service `name`; a full package copies its driver file and adds registry values.
    static std::string Package(const std::string& name, bool full) {
        return DriverInf({name, true, full, full, ""});
    }
    // Installs `text` from the file `inf`, its driver file beside it, staged under
    // that name, as KSInstInstall would.
    DWORD Install(const std::wstring& inf, const std::string& text, const std::wstring& id,
                  unsigned flags = 0) {
        const std::wstring& name = names_.emplace_back(inf.substr(0, inf.size() - 4));
        CopyFileW(TestDriverPath().c_str(), (folder_ + name + L".sys").c_str(), FALSE);
        WriteTextFile(folder_ + inf, text);
        setuputils::FileLog quiet(nullptr);
        return setuputils::InstallService(folder_ + inf, id, nullptr, flags, quiet);
    }
    // What `steps` write to a fresh log.
    template <typename Steps>
    std::wstring Logged(Steps steps) {
        {
            setuputils::FileLog log(_wfopen(log_.c_str(), L"wt"));
            steps(log);
        }
        return ReadLog(log_);
    }
    std::wstring Remove(const std::wstring& id, const wchar_t* service) {
        return Logged([&](auto& log) { setuputils::RemoveDriverPackage(id, service, 0, 0, log); });
    }

    const Texts pendingAtStart_ = PendingRenames();
    const std::wstring folder_ = MakeTempFolder(L"rdp");
    const std::wstring log_ = folder_ + L"removal.log";
    Texts names_;
    Texts ids_;
    std::vector<std::pair<HKEY, std::wstring>> keys_ = {{HKEY_LOCAL_MACHINE, kTestKey}};
};

// The install section names two file and two registry sections on one line
// each, and the event-log section has an HKLM line beside its HKR lines.
TEST_F(RemoveDriverPackageTest, FullRemovalUndoesTheInstallation) {
    const std::wstring id = NewId();
    names_.push_back(L"rdpmore");
    CopyFileW(TestDriverPath().c_str(), (folder_ + L"rdpmore.sys").c_str(), FALSE);
    const std::string eventLog = "[EventLog_AddReg]\r\n";
    std::string inf = Replaced(Package("rdpfull", true), "CopyFiles=Driver_Files\r\nAddReg=Driver_AddReg",
                               "CopyFiles=Driver_Files,More_Files\r\nAddReg=Driver_AddReg,More_AddReg");
    inf = Replaced(inf, eventLog, eventLog + "HKLM,\"SOFTWARE\\SetupUtilsTest\",Source,,\"x\"\r\n") +
          "[More_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",More,,\"1\"\r\n"
          "[More_Files]\r\nrdpmore.sys\r\n[SourceDisksFiles]\r\nrdpmore.sys=1\r\n";
    ASSERT_EQ(Install(L"rdpfull.inf", inf, id), 0u);
    // Wine's services installer skips the event-log section: its values are written here.
    WriteRegistryString(HKEY_LOCAL_MACHINE, kEventLogKey + L"rdpfull", L"EventMessageFile", L"IoLogMsg.dll");
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kEventLogKey + L"rdpfull", L"TypesSupported", 7);
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Source", L"x");
    ASSERT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"More"), L"1");
    ASSERT_TRUE(Exists(kDrivers + L"rdpmore.sys"));
    ASSERT_TRUE(Exists(kInfs + L"rdpfull.pnf"));

    EXPECT_TRUE(
        InOrder(Remove(id, nullptr),
                {L"info: Service rdpfull stopped.\ninfo: Service rdpfull deleted.",
                 LR"(info: RemoveRegistryAction. 'HKLM\SOFTWARE\SetupUtilsTest\Source'.
info: Empty key 'SOFTWARE\SetupUtilsTest' removed.)",
                 LR"(info: Empty key 'System\CurrentControlSet\Services\EventLog\System\rdpfull' removed.)",
                 LR"(info: Inf file 'C:\windows\inf\rdpfull.inf' deleted.
info: Pnf file 'C:\windows\inf\rdpfull.pnf' deleted.
info: Inf file location deleted.
info: Uninstall driver rdpfull success.)"}));
    EXPECT_FALSE(Exists(kDrivers + L"rdpfull.sys"));
    EXPECT_FALSE(Exists(kDrivers + L"rdpmore.sys"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTestKey));
    EXPECT_EQ(FilesIn(kInfs + L"rdpfull.*"), Texts{}) << "the staged INF and its .pnf";
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kLocationKey)) << "its last value went";
    EXPECT_EQ(PendingRenames(), pendingAtStart_) << "every file could be deleted at once";

    // Removed again: no location, and without a service name nothing else to do.
    EXPECT_EQ(Remove(id, nullptr), L"info: KSInstUninstall start.\nerror 0x2: Can't get inf file location.\n"
                                   L"error 0x2: GetInfFileLocation.\n");
}

TEST_F(RemoveDriverPackageTest, WithoutTheStagedInfOnlyTheNamedServiceGoes) {
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, kInfs + L"rdpelse.inf");
    const std::wstring id = NewId();
    const std::wstring noLocation = L"info: KSInstUninstall start.\nerror 0x2: Can't get inf file location.\n"
                                    L"info: GetInfFileLocation error\ninfo: StopDeleteService: ";
    // Stopping and deleting a running service, or deleting it only (flag 0x100),
    // are seen in the other tests.
    EXPECT_EQ(Remove(id, L"rdpnone"), noLocation + L"rdpnone.\ninfo: No service rdpnone to stop.\n"
                                                   L"info: No service rdpnone to remove.\n");

    // Wine's driver-store lookup is a stub failing with 120; a real system has
    // no store copy of a staged INF that is gone either.
    setuputils::SaveInfLocation(id, kInfs + L"rdpgone.inf");
    EXPECT_TRUE(InOrder(Remove(id, L"rdpgone"), {L"info: SetupGetInfDriverStoreLocation fail.\n"
                                                 L"info: StopDeleteService: rdpgone.\n"
                                                 L"info: No service rdpgone to stop.\n"
                                                 L"info: No service rdpgone to remove.\n"
                                                 L"info: Inf file location deleted."}));
    setuputils::SaveInfLocation(id, kInfs + L"rdpgone.inf");
    EXPECT_TRUE(InOrder(Remove(id, nullptr),
                        {L"error 0x78: SetupGetInfDriverStoreLocation.\ninfo: Inf file location deleted."}));
    EXPECT_EQ(Location(other), kInfs + L"rdpelse.inf") << "another package's location stays";
}

// A staged INF naming another service, or none, may be another package's: only
// the named service and the location go. One staged as "x.INF" stays too.
TEST_F(RemoveDriverPackageTest, StagedInfOfAnotherPackageStays) {
    const std::wstring id = NewId();
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, kInfs + L"rdpelse.inf");
    ASSERT_EQ(Install(L"rdpown.inf", Package("rdpown", true), id), 0u);
    names_.push_back(L"rdpother");
    TestDriverService foreign(L"rdpother");
    foreign.Start();
    auto unknown = [](const std::wstring& name) {
        return L"info: Opened unknown INF\ninfo: StopDeleteService: " + name + L".\ninfo: Service " + name +
               L" stopped.\ninfo: Service " + name + L" deleted.\ninfo: Inf file location deleted.";
    };
    auto packageStays = [] {
        EXPECT_TRUE(Exists(kDrivers + L"rdpown.sys"));
        EXPECT_EQ(FilesIn(kInfs + L"rdpown.*").size(), 2u);
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey + L"\\rdpown\\Settings", L"Mode"),
                  L"normal");
    };
    EXPECT_TRUE(InOrder(Remove(id, L"rdpother"), {unknown(L"rdpother")}));
    EXPECT_EQ(ServiceState(L"rdpown"), kRunning);
    packageStays();
    EXPECT_TRUE(Location(other).has_value()) << "the record's key stays with another value";

    // The names are compared case-sensitively, but the service manager finds
    // "RDPOWN" as "rdpown": that service goes, the rest of the package stays.
    setuputils::SaveInfLocation(id, kInfs + L"rdpown.inf");
    EXPECT_TRUE(InOrder(Remove(id, L"RDPOWN"), {unknown(L"RDPOWN")}));
    EXPECT_EQ(ServiceState(L"rdpown"), 0u);
    packageStays();

    // An INF without AddService: a named service is foreign; without a name only the location goes.
    const std::string plain = DriverInf({"", true, false, false, "AddReg=Plain_AddReg\r\n"}) +
                              "[Plain_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",Kept,,\"1\"\r\n";
    ASSERT_EQ(Install(L"rdpplain.inf", plain, id, setuputils::kFlagNoService), 0u);
    EXPECT_TRUE(InOrder(Remove(id, L"rdpplain"),
                        {L"info: Opened unknown INF\ninfo: StopDeleteService: rdpplain.\n"
                         L"info: No service rdpplain to stop.\ninfo: No service rdpplain to remove."}));
    setuputils::SaveInfLocation(id, kInfs + L"rdpplain.inf");
    EXPECT_TRUE(InOrder(Remove(id, nullptr), {L"info: Found InstallSectionName: Driver_Install\n"
                                              L"info: Inf file location deleted.\n"
                                              L"info: Uninstall driver unknown success."}));
    EXPECT_TRUE(Exists(kInfs + L"rdpplain.inf"));
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Kept"), L"1");

    ASSERT_EQ(Install(L"rdpupper.INF", Package("rdpupper", false), id, setuputils::kFlagDoNotStart), 0u);
    ASSERT_EQ(Location(id), kInfs + L"rdpupper.INF");
    EXPECT_TRUE(InOrder(Remove(id, nullptr), {LR"(info: Inf filename: 'rdpupper.INF'.
info: SetupUninstallOEMInf done.
error 0x7B: Invalid OEMxxxx.inf file name.
info: Inf file location deleted.
info: Uninstall driver rdpupper success.)"}));
    EXPECT_EQ(FilesIn(kInfs + L"rdpupper.*").size(), 2u);
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
    const std::wstring log = Logged([&](auto& log) {
        EXPECT_EQ(setuputils::DeleteOrDelayFile(image, log), 0u);
        EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    });
    FreeLibrary(mapped);
    CloseHandle(handle);

    const Texts moved = FilesIn(folder_ + L"csp*.tmp");
    ASSERT_EQ(moved.size(), 1u) << "the temporary name of the locked file is given back";
    EXPECT_TRUE(
        InOrder(log, {L"info: File:" + image + L" couldn't be deleted.\ninfo: File:" + image +
                      L" success mark delete at reboot.\ninfo: File:" + locked + L" couldn't be deleted."}));
    EXPECT_NE(log.find(L"info: MoveFileEx from file:" + locked + L" to " + folder_ + L"csp"),
              std::wstring::npos);
    EXPECT_FALSE(Exists(image)) << "the name is free at once";
    Texts expected = pendingAtStart_;
    expected.insert(expected.end(), {L"\\??\\" + folder_ + moved[0], L""});
    EXPECT_EQ(PendingRenames(), expected);

    // A missing file counts as removed; a free one goes at once, silently.
    EXPECT_EQ(Logged([&](auto& log) {
                  EXPECT_EQ(setuputils::DeleteOrDelayFile(folder_ + L"missing.sys", log), 0u);
                  EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log), 0u);
              }),
              L"info: No files to remove: " + folder_ + L"missing.sys\n");
    EXPECT_FALSE(Exists(locked));
}

TEST_F(RemoveDriverPackageTest, EmptyKeysGoUpToANonEmptyParentButNeverTheFirst) {
    keys_.emplace_back(HKEY_CURRENT_USER, L"rdptop");
    const std::wstring leaf = kTestKey + L"\\rdpkeys\\A\\B\\C";
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey + L"\\rdpkeys", L"Keep", L"1");
    WriteRegistryString(HKEY_LOCAL_MACHINE, leaf, L"Value", L"1");
    WriteRegistryString(HKEY_CURRENT_USER, L"rdptop\\x\\y", L"Value", L"1");
    EXPECT_EQ(Logged([&](auto& log) {
                  setuputils::RegistryValueRemover remover(log);
                  EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, leaf, L"Missing"),
                            static_cast<UINT>(ERROR_INSTALL_FAILURE));
                  setuputils::RemoveEmptyKey(HKEY_LOCAL_MACHINE, leaf, log);
                  EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, leaf, L"Value"), 0u);
                  EXPECT_EQ(remover.Remove(HKEY_CURRENT_USER, L"rdptop\\x\\y", L"Value"), 0u);
              }),
              LR"(info: Empty key 'SOFTWARE\SetupUtilsTest\rdpkeys\A\B\C' removed.
info: Empty key 'SOFTWARE\SetupUtilsTest\rdpkeys\A\B' removed.
info: Empty key 'SOFTWARE\SetupUtilsTest\rdpkeys\A' removed.
info: Empty key 'rdptop\x\y' removed.
info: Empty key 'rdptop\x' removed.
)");
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, L"rdptop")) << "the first component stays, even empty";
}

class KSInstUninstallTest : public RemoveDriverPackageTest {
protected:
    // Runs `action` on `data`; the messages recorded are then its own.
    UINT Run(const char* action, const std::wstring& data = L"") {
        messages_.Clear();
        return session_.Run(action, data);
    }
    // The information messages as the lines of a driver log.
    std::wstring InfoLog() const {
        std::wstring log;
        for (const auto& text : messages_.InfoTexts()) {
            log += text.substr(text.find(L':') + 1) + L"\n";
        }
        return log;
    }

    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};

TEST_F(KSInstUninstallTest, RemovesThePackageOfItsDataAndNeverFails) {
    const std::wstring id = NewId();
    ASSERT_EQ(Install(L"rdpaction.inf", Package("rdpaction", true), id), 0u);
    const std::wstring sys = kDrivers + L"rdpaction.sys";
    const std::wstring s = L"\x0001";
    const std::wstring data = folder_ + s + L"rdpaction.inf" + s + id + s + L"256" + s + L"3000000";
    const std::vector<Texts> progress = {{L"1", L"0", L"0", L"0"}, {L"2", L"3000000", L"0", L"0"}};

    // The rollback of an installation is the same removal. Flags 0x100: the
    // service is deleted, not stopped, and the running driver's image moved away.
    EXPECT_EQ(Run("KSInstRollback", data + s + L"rdpaction"), 0u);
    EXPECT_TRUE(InOrder(InfoLog(), {L"info: Don't stop driver",
                                    L"info: File:" + sys + L" success mark delete at reboot.",
                                    L"info: Uninstall driver rdpaction success."}));
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_PROGRESS), progress);
    EXPECT_EQ(ServiceState(L"rdpaction"), kRunning);
    EXPECT_FALSE(Exists(sys));
    EXPECT_EQ(PendingRenames().size(), pendingAtStart_.size() + 2);
    StopAndDeleteService(L"rdpaction");
    ASSERT_EQ(ServiceState(L"rdpaction"), 0u);

    // Nothing left to remove: the error is reported, the action still succeeds.
    EXPECT_EQ(Run("KSInstUninstall", data + s + L"rdpaction"), 0u);
    EXPECT_TRUE(
        InOrder(InfoLog(), {L"info: GetInfFileLocation error", L"info: No service rdpaction to remove."}));
    EXPECT_EQ(messages_.OfType(INSTALLMESSAGE_ERROR).size(), 1u);
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_PROGRESS), progress);

    // Data without the progress field, or none, is refused before anything is done.
    for (const std::wstring& bad : {data.substr(0, data.rfind(s)), std::wstring()}) {
        EXPECT_EQ(Run("KSInstUninstall", bad), static_cast<UINT>(ERROR_INSTALL_FAILURE));
        EXPECT_TRUE(messages_.all().empty());
    }
}

class KSUninstallWTest : public RemoveDriverPackageTest {};

// rundll32 looks ",KSUninstallW" up as KSUninstallWW first (the exports test
// shows it is KSUninstallW) and hands it the wide command line.
TEST_F(KSUninstallWTest, CommandLineRemovesThePackageAndWritesItsLog) {
    const std::wstring id = NewId();
    // A service that was never started, with neither files nor registry values.
    ASSERT_EQ(Install(L"rdpcmd.inf", Package("rdpcmd", false), id, setuputils::kFlagDoNotStart), 0u);
    const std::wstring log = folder_ + L"un install.log";
    EXPECT_EQ(_wspawnlp(_P_WAIT, L"rundll32.exe", L"rundll32.exe",
                        (L"\"" + SetupUtilsLibrary::Path() + L"\",KSUninstallW").c_str(), id.c_str(),
                        (L"\"" + log + L"\"").c_str(), nullptr),
              0);
    EXPECT_TRUE(InOrder(ReadLog(log), {L"info: KSInstUninstall start.",
                                       L"info: Service rdpcmd already stoped.\ninfo: Service rdpcmd deleted.",
                                       L"info: No files found 'Driver_Install.CopyFiles'.",
                                       L"info: No files found 'Driver_Install.AddReg'",
                                       LR"(info: Pnf file 'C:\windows\inf\rdpcmd.pnf' deleted.
info: Inf file location deleted.
info: Uninstall driver rdpcmd success.)"}));
    EXPECT_EQ(ServiceState(L"rdpcmd"), 0u);

    // Called in process without arguments: the package recorded under the default component id goes.
    ids_.push_back(setuputils::kDefaultComponentId);
    ASSERT_EQ(Install(L"rdpdefault.inf", Package("rdpdefault", false), setuputils::kDefaultComponentId,
                      setuputils::kFlagDoNotStart),
              0u);
    wchar_t empty[] = L"";
    SetupUtilsLibrary().CommandLineEntry("KSUninstallW")(nullptr, nullptr, empty, SW_HIDE);
    EXPECT_EQ(ServiceState(L"rdpdefault"), 0u);
    EXPECT_FALSE(Exists(kInfs + L"rdpdefault.inf"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kLocationKey));
}

class KSInstCleanUpTest : public KSInstUninstallTest {};

TEST_F(KSInstCleanUpTest, RemovesTheRebootMarkerAndItsEmptyKeysOnly) {
    const std::wstring marker =
        std::wstring(setuputils::kUninstallKeyPath) + setuputils::kDriverInstallerProductCode;
    const std::wstring sibling = std::wstring(setuputils::kUninstallKeyPath) + L"rdpsibling";
    keys_ = {{HKEY_LOCAL_MACHINE, marker}, {HKEY_LOCAL_MACHINE, sibling}};
    WriteRegistryString(HKEY_LOCAL_MACHINE, sibling, L"DisplayName", L"another product");
    WriteRegistryString(HKEY_LOCAL_MACHINE, marker, L"Reboot", L"Force");
    WriteRegistryString(HKEY_LOCAL_MACHINE, marker, L"Other", L"1");

    EXPECT_EQ(Run("KSInstCleanUp"), 0u);
    EXPECT_FALSE(ReadRegistryString(HKEY_LOCAL_MACHINE, marker, L"Reboot").has_value());
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, marker, L"Other"), L"1") << "a key still in use stays";
    EXPECT_TRUE(messages_.all().empty());

    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, marker.c_str(), L"Other");
    WriteRegistryString(HKEY_LOCAL_MACHINE, marker, L"Reboot", L"Force");
    EXPECT_EQ(Run("KSInstCleanUp"), 0u);
    EXPECT_EQ(InfoLog(), L"info: Empty key '" + marker + L"' removed.\n");
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, sibling, L"DisplayName"), L"another product");
    EXPECT_EQ(Run("KSInstCleanUp"), 0u) << "no marker";
    EXPECT_TRUE(messages_.all().empty());
}

} // namespace
} // namespace harness
