// Removal of INF driver packages against the prefix's real service manager,
// setup API and registry: RemoveDriverPackage and its removers, and the
// KSInstUninstall, KSUninstallW and KSInstCleanUp entry points.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <windows.h>

#include "driver_inf.h"
#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "drivers/remove_driver_package.h"
#include "drivers/removers.h"
#include "frame/handles.h"
#include "frame/product_codes.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using Texts = std::vector<std::wstring>;
using setuputils::ServiceHandle;

constexpr wchar_t kEventLogKey[] = L"System\\CurrentControlSet\\Services\\EventLog\\System\\";
constexpr wchar_t kSessionManager[] = L"System\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingRenames[] = L"PendingFileRenameOperations";
constexpr wchar_t kTestKey[] = L"SOFTWARE\\SetupUtilsTest";
const std::wstring kLocationKey = setuputils::InfLocationKeyPath();

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::optional<std::wstring> Location(const std::wstring& id) {
    return ReadRegistryString(HKEY_LOCAL_MACHINE, kLocationKey, id);
}

// The state of service `name`, 0 when there is none.
DWORD ServiceState(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    SERVICE_STATUS status{};
    return service && QueryServiceStatus(service.get(), &status) ? status.dwCurrentState : 0;
}

// Stops and deletes the service, and waits until the service manager lets it go.
void StopAndDelete(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
    if (service) {
        SERVICE_STATUS status{};
        ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
        DeleteService(service.get());
        service.reset();
    }
    for (int i = 0; i < 50 && ServiceState(name) != 0; ++i) {
        Sleep(100);
    }
}

// The entries of PendingFileRenameOperations: source, target, source, target...
// An empty target deletes the source.
Texts PendingRenames() {
    Texts entries;
    DWORD size = 0;
    RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, RRF_RT_REG_MULTI_SZ, nullptr, nullptr,
                 &size);
    std::wstring data(size / sizeof(wchar_t) + 2, L'\0');
    RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, RRF_RT_REG_MULTI_SZ, nullptr,
                 data.data(), &size);
    for (const wchar_t* entry = data.c_str(); *entry != L'\0';) {
        entries.emplace_back(entry);
        entries.emplace_back(entry + entries.back().size() + 1);
        entry += entries[entries.size() - 2].size() + entries.back().size() + 2;
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
    const std::string prefix = "KSInstall64:";
    std::wstring text;
    for (std::size_t start = 0, end = 0; start < file.size(); start = end + 2) {
        end = file.find("\r\n", start);
        if (end == std::string::npos || file.compare(start, prefix.size(), prefix) != 0) {
            ADD_FAILURE() << "not a log line: " << file.substr(start);
            break;
        }
        text += Wide(file.substr(start + prefix.size(), end - start - prefix.size())) + L"\n";
    }
    return text;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

// The text from the first occurrence of `first` on.
std::wstring From(const std::wstring& text, const std::wstring& first) {
    const auto start = text.find(first);
    return start == std::wstring::npos ? L"<no " + first + L">" : text.substr(start);
}

// Each test works in its own folder and lists the services, component ids and
// registry keys it may leave; they go, and so do the restart operations the
// test added and their files, however the test ended.
class RemoveDriverPackageTest : public ::testing::Test {
protected:
    ~RemoveDriverPackageTest() override {
        setuputils::FileLog quiet(nullptr);
        for (const auto& service : services_) {
            StopAndDelete(service);
            DeleteFileW((L"C:\\windows\\system32\\drivers\\" + service + L".sys").c_str());
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kEventLogKey + service);
        }
        for (const auto& inf : infs_) {
            DeleteFileW((L"C:\\windows\\inf\\" + inf).c_str());
            DeleteFileW((L"C:\\windows\\inf\\" + inf.substr(0, inf.size() - 4) + L".pnf").c_str());
        }
        for (const auto& id : ids_) {
            setuputils::DeleteInfLocation(id, quiet);
        }
        for (const auto& [root, key] : keys_) {
            DeleteRegistryTree(root, key);
        }
        // The system appends; what follows the entries found at the start is the test's.
        const Texts pending = PendingRenames();
        for (std::size_t i = pendingAtStart_.size(); i + 1 < pending.size(); i += 2) {
            DeleteFileW(pending[i].substr(4).c_str());
        }
        std::wstring data;
        for (const auto& entry : pendingAtStart_) {
            data += entry + L'\0';
        }
        setuputils::RegKey key;
        RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager, 0, KEY_SET_VALUE, key.put());
        if (data.empty()) {
            RegDeleteValueW(key.get(), kPendingRenames);
        } else {
            RegSetValueExW(key.get(), kPendingRenames, 0, REG_MULTI_SZ,
                           reinterpret_cast<const BYTE*>(data.c_str()),
                           static_cast<DWORD>((data.size() + 1) * sizeof(wchar_t)));
        }
        for (const auto& file : FilesIn(folder_ + L"*.*")) {
            DeleteFileW((folder_ + file).c_str());
        }
        RemoveDirectoryW(folder_.c_str());
    }

    std::wstring NewId() { return ids_.emplace_back(NewGuid()); }

    // The INF of the package of service `name`, its driver file beside it; a
    // full package copies the file and adds registry values.
    std::string Package(const std::string& name, bool full) {
        services_.push_back(Wide(name));
        CopyFileW(TestDriverPath().c_str(), (folder_ + Wide(name) + L".sys").c_str(), FALSE);
        keys_.emplace_back(HKEY_LOCAL_MACHINE, kTestKey);
        return DriverInf({name, true, full, full, ""});
    }
    // Installs `text` from the file `inf`, staged under that name, as KSInstInstall would.
    DWORD Install(const std::wstring& inf, const std::string& text, const std::wstring& id,
                  unsigned flags = 0) {
        infs_.push_back(inf);
        WriteTextFile(folder_ + inf, text);
        setuputils::FileLog quiet(nullptr);
        return setuputils::InstallService(folder_ + inf, id, nullptr, flags, quiet);
    }
    // Wine's services installer skips the event-log section of AddService; its
    // HKR values are written here as the system would write them.
    void WriteEventLogValues(const std::wstring& service) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kEventLogKey + service, L"EventMessageFile", L"IoLogMsg.dll");
        WriteRegistryDword(HKEY_LOCAL_MACHINE, kEventLogKey + service, L"TypesSupported", 7);
    }

    std::wstring Remove(const std::wstring& id, const wchar_t* service, unsigned flags = 0) {
        {
            setuputils::FileLog log(_wfopen(log_.c_str(), L"wt"));
            setuputils::RemoveDriverPackage(id, service, 0, flags, log);
        }
        return ReadLog(log_);
    }

    const Texts pendingAtStart_ = PendingRenames();
    const std::wstring folder_ = MakeTempFolder(L"rdp");
    const std::wstring log_ = folder_ + L"removal.log";
    Texts services_;
    Texts infs_; // staged INF names
    Texts ids_;
    std::vector<std::pair<HKEY, std::wstring>> keys_;
};

TEST_F(RemoveDriverPackageTest, FullRemovalUndoesTheInstallation) {
    const std::wstring id = NewId();
    ASSERT_EQ(Install(L"rdpfull.inf", Package("rdpfull", true), id), 0u);
    WriteEventLogValues(L"rdpfull");
    ASSERT_EQ(ServiceState(L"rdpfull"), static_cast<DWORD>(SERVICE_RUNNING));
    ASSERT_TRUE(Exists(L"C:\\windows\\inf\\rdpfull.pnf"));

    EXPECT_EQ(Remove(id, nullptr), LR"(info: KSInstUninstall start.
info: Inf file location: C:\windows\inf\rdpfull.inf
info: Found Manufacturer: Models
info: Found TargetOS: NTamd64
info: Found InstallSectionName: Driver_Install
info: StopDeleteService: rdpfull.
info: Service rdpfull stopped.
info: Service rdpfull deleted.
info: Build file queue.
info: Add section 'Driver_Files'.
info: Build file queue success.
info: Start RemoveFileAction for file:'C:\windows\system32\drivers\rdpfull.sys'.
info: RemoveFileAction success.
info: RemoveRegistryAction section:'Driver_AddReg'.
info: RemoveRegistryAction. 'HKLM\SOFTWARE\SetupUtilsTest\rdpfull\Installed'.
info: RemoveRegistryAction success.
info: RemoveRegistryAction. 'HKLM\SOFTWARE\SetupUtilsTest\rdpfull\Settings\Mode'.
info: Empty key 'SOFTWARE\SetupUtilsTest\rdpfull\Settings' removed.
info: Empty key 'SOFTWARE\SetupUtilsTest\rdpfull' removed.
info: Empty key 'SOFTWARE\SetupUtilsTest' removed.
info: RemoveRegistryAction success.
info: RemoveRegistryAction for section 'Driver_AddReg' success.
info: Found event log section: 'EventLog_Install'
info: Found event log type: 'System'
info: RemoveRegistryAction section:'EventLog_AddReg'.
info: RemoveRegistryAction. 'HKR\\EventMessageFile'.
info: RemoveRegistryAction success.
info: RemoveRegistryAction. 'HKR\\TypesSupported'.
info: Empty key 'System\CurrentControlSet\Services\EventLog\System\rdpfull' removed.
info: RemoveRegistryAction success.
info: RemoveRegistryAction for section 'EventLog_AddReg' success.
info: Inf filename: 'rdpfull.inf'.
info: SetupUninstallOEMInf done.
info: Inf file 'C:\windows\inf\rdpfull.inf' deleted.
info: Pnf file 'C:\windows\inf\rdpfull.pnf' deleted.
info: Inf file location deleted.
info: Uninstall driver rdpfull success.
)");
    EXPECT_EQ(ServiceState(L"rdpfull"), 0u);
    EXPECT_FALSE(Exists(L"C:\\windows\\system32\\drivers\\rdpfull.sys"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTestKey));
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kEventLogKey)) << "a parent still in use";
    EXPECT_FALSE(Exists(L"C:\\windows\\inf\\rdpfull.inf"));
    EXPECT_FALSE(Exists(L"C:\\windows\\inf\\rdpfull.pnf"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kLocationKey)) << "its last value went";
    EXPECT_EQ(PendingRenames(), pendingAtStart_) << "every file could be deleted at once";

    // Removed again: no location, and without a service name nothing else to do.
    EXPECT_EQ(Remove(id, nullptr), L"info: KSInstUninstall start.\n"
                                   L"error 0x2: Can't get inf file location.\n"
                                   L"error 0x2: GetInfFileLocation.\n");
}

TEST_F(RemoveDriverPackageTest, WithoutLocationTheNamedServiceStillGoes) {
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, L"C:\\windows\\inf\\rdpelse.inf");
    const std::wstring id = NewId();
    auto expected = [](const std::wstring& name, const std::wstring& stop, const std::wstring& remove) {
        return L"info: KSInstUninstall start.\nerror 0x2: Can't get inf file location.\n"
               L"info: GetInfFileLocation error\ninfo: StopDeleteService: " +
               name + L".\ninfo: " + stop + L"\ninfo: " + remove + L"\n";
    };
    for (const wchar_t* name : {L"rdprun", L"rdpkeep"}) {
        services_.push_back(name);
    }
    {
        TestDriverService running(L"rdprun");
        running.Start();
        ASSERT_EQ(running.State(), static_cast<DWORD>(SERVICE_RUNNING));
        TestDriverService kept(L"rdpkeep");
        kept.Start();

        EXPECT_EQ(Remove(id, L"rdprun"),
                  expected(L"rdprun", L"Service rdprun stopped.", L"Service rdprun deleted."));
        EXPECT_EQ(ServiceState(L"rdprun"), 0u);
        EXPECT_EQ(Remove(id, L"rdpkeep", setuputils::kFlagDeleteWithoutStop),
                  expected(L"rdpkeep", L"Don't stop driver", L"Service rdpkeep deleted."));
        // Deleted while running: the service manager keeps it, marked, until it stops.
        EXPECT_EQ(kept.State(), static_cast<DWORD>(SERVICE_RUNNING));
        ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        ServiceHandle service(OpenServiceW(manager.get(), L"rdpkeep", SERVICE_ALL_ACCESS));
        EXPECT_FALSE(DeleteService(service.get()));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SERVICE_MARKED_FOR_DELETE));
    }
    EXPECT_EQ(Remove(id, L"rdpnone"),
              expected(L"rdpnone", L"No service rdpnone to stop.", L"No service rdpnone to remove."));
    EXPECT_EQ(Location(other), L"C:\\windows\\inf\\rdpelse.inf") << "another package's location stays";
}

TEST_F(RemoveDriverPackageTest, InfOfAnotherServiceOnlyRemovesTheNamedService) {
    const std::wstring id = NewId();
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, L"C:\\windows\\inf\\rdpelse.inf");
    ASSERT_EQ(Install(L"rdpown.inf", Package("rdpown", true), id), 0u);
    services_.push_back(L"rdpother");
    TestDriverService foreign(L"rdpother");
    foreign.Start();
    auto unknown = [](const std::wstring& name) {
        return L"info: Opened unknown INF\ninfo: StopDeleteService: " + name + L".\ninfo: Service " + name +
               L" stopped.\ninfo: Service " + name + L" deleted.\ninfo: Inf file location deleted.\n";
    };
    auto packageStays = [] {
        EXPECT_TRUE(Exists(L"C:\\windows\\system32\\drivers\\rdpown.sys"));
        EXPECT_TRUE(Exists(L"C:\\windows\\inf\\rdpown.inf"));
        EXPECT_EQ(
            ReadRegistryString(HKEY_LOCAL_MACHINE, DriverInfRegistryKey(L"rdpown") + L"\\Settings", L"Mode"),
            L"normal");
    };

    EXPECT_EQ(From(Remove(id, L"rdpother"), L"info: Opened"), unknown(L"rdpother"));
    EXPECT_EQ(ServiceState(L"rdpother"), 0u);
    EXPECT_EQ(ServiceState(L"rdpown"), static_cast<DWORD>(SERVICE_RUNNING));
    packageStays();
    EXPECT_FALSE(Location(id).has_value());
    EXPECT_TRUE(Location(other).has_value()) << "the record's key stays with another value";

    // The names are compared case-sensitively, but the service manager finds
    // "RDPOWN" as "rdpown": that service goes, the rest of the package stays.
    setuputils::SaveInfLocation(id, L"C:\\windows\\inf\\rdpown.inf");
    EXPECT_EQ(From(Remove(id, L"RDPOWN"), L"info: Opened"), unknown(L"RDPOWN"));
    EXPECT_EQ(ServiceState(L"rdpown"), 0u);
    packageStays();
}

TEST_F(RemoveDriverPackageTest, StagedInfThatIsGoneServicelessOrUpperCase) {
    // Wine's driver-store lookup is a stub failing with 120; a real system has
    // no store copy of a staged INF that is gone either.
    const std::wstring gone = NewId();
    setuputils::SaveInfLocation(gone, L"C:\\windows\\inf\\rdpgone.inf");
    EXPECT_EQ(From(Remove(gone, L"rdpgone"), L"info: SetupOpenInfFile"), LR"(info: SetupOpenInfFile error: 0.
info: SetupGetInfDriverStoreLocation fail.
info: StopDeleteService: rdpgone.
info: No service rdpgone to stop.
info: No service rdpgone to remove.
info: Inf file location deleted.
)");
    setuputils::SaveInfLocation(gone, L"C:\\windows\\inf\\rdpgone.inf");
    EXPECT_EQ(From(Remove(gone, nullptr), L"info: SetupOpenInfFile"), LR"(info: SetupOpenInfFile error: 0.
error 0x78: SetupGetInfDriverStoreLocation.
info: Inf file location deleted.
)");
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kLocationKey));

    // An INF without AddService names no service: a given service name is
    // then foreign, and only that service and the location go; without a
    // service name only the location goes.
    const std::wstring serviceless = NewId();
    keys_.emplace_back(HKEY_LOCAL_MACHINE, kTestKey);
    const std::string plain = DriverInf({"", true, false, false, "AddReg=Plain_AddReg\r\n"}) +
                              "[Plain_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",Kept,,\"1\"\r\n";
    ASSERT_EQ(Install(L"rdpplain.inf", plain, serviceless, setuputils::kFlagNoService), 0u);
    EXPECT_EQ(From(Remove(serviceless, L"rdpplain"), L"info: Opened"), LR"(info: Opened unknown INF
info: StopDeleteService: rdpplain.
info: No service rdpplain to stop.
info: No service rdpplain to remove.
info: Inf file location deleted.
)");
    setuputils::SaveInfLocation(serviceless, L"C:\\windows\\inf\\rdpplain.inf");
    EXPECT_EQ(Remove(serviceless, nullptr), LR"(info: KSInstUninstall start.
info: Inf file location: C:\windows\inf\rdpplain.inf
info: Found Manufacturer: Models
info: Found TargetOS: NTamd64
info: Found InstallSectionName: Driver_Install
info: Inf file location deleted.
info: Uninstall driver unknown success.
)");
    EXPECT_TRUE(Exists(L"C:\\windows\\inf\\rdpplain.inf"));
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Kept"), L"1");
    EXPECT_FALSE(Location(serviceless).has_value());

    // Staged as "x.INF", not "x.inf": the INF and its .pnf are not deleted.
    const std::wstring upper = NewId();
    ASSERT_EQ(Install(L"rdpupper.INF", Package("rdpupper", false), upper, setuputils::kFlagDoNotStart), 0u);
    ASSERT_EQ(Location(upper), L"C:\\windows\\inf\\rdpupper.INF");
    EXPECT_EQ(From(Remove(upper, nullptr), L"info: Inf filename"), LR"(info: Inf filename: 'rdpupper.INF'.
info: SetupUninstallOEMInf done.
error 0x7B: Invalid OEMxxxx.inf file name.
info: Inf file location deleted.
info: Uninstall driver rdpupper success.
)");
    EXPECT_EQ(ServiceState(L"rdpupper"), 0u);
    EXPECT_EQ(FilesIn(L"C:\\windows\\inf\\rdpupper.*").size(), 2u);
}

TEST_F(RemoveDriverPackageTest, FileInUseIsMovedAwayAndDeletedAtRestart) {
    // A mapped image cannot be deleted but can be renamed, under Wine as under
    // Windows; a handle that does not share deletion blocks both.
    const std::wstring image = folder_ + L"inuse.dll";
    const std::wstring locked = folder_ + L"locked.txt";
    ASSERT_TRUE(CopyFileW(SetupUtilsLibrary::Path().c_str(), image.c_str(), FALSE));
    WriteTextFile(locked, "locked");
    std::unique_ptr<std::remove_pointer_t<HMODULE>, decltype(&FreeLibrary)> mapped(
        LoadLibraryExW(image.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES), &FreeLibrary);
    ASSERT_NE(mapped, nullptr);
    HANDLE handle =
        CreateFileW(locked.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    UINT imageStatus = 0;
    UINT lockedStatus = 0;
    {
        setuputils::FileLog log(_wfopen(log_.c_str(), L"wt"));
        imageStatus = setuputils::DeleteOrDelayFile(image, log);
        lockedStatus = setuputils::DeleteOrDelayFile(locked, log);
    }
    CloseHandle(handle);

    EXPECT_EQ(imageStatus, 0u);
    EXPECT_EQ(lockedStatus, static_cast<UINT>(ERROR_INSTALL_FAILURE));
    const Texts moved = FilesIn(folder_ + L"csp*.tmp");
    ASSERT_EQ(moved.size(), 1u) << "the temporary name of the locked file is given back";
    // The temporary name the locked file was to take is not known.
    const std::wstring log = ReadLog(log_);
    const std::wstring start = L"info: File:" + image + L" couldn't be deleted.\ninfo: File:" + image +
                               L" success mark delete at reboot.\ninfo: File:" + locked +
                               L" couldn't be deleted.\ninfo: MoveFileEx from file:" + locked + L" to " +
                               folder_ + L"csp";
    EXPECT_EQ(log.substr(0, start.size()), start);
    EXPECT_EQ(log.substr(log.size() - 11), L".tmp fail.\n");
    EXPECT_EQ(std::count(log.begin(), log.end(), L'\n'), 4);
    EXPECT_FALSE(Exists(image)) << "the name is free at once";
    EXPECT_TRUE(Exists(locked));
    Texts expected = pendingAtStart_;
    expected.insert(expected.end(), {L"\\??\\" + folder_ + moved[0], L""});
    EXPECT_EQ(PendingRenames(), expected);

    // A missing file counts as removed; a free one goes at once, silently.
    {
        setuputils::FileLog log(_wfopen(log_.c_str(), L"wt"));
        EXPECT_EQ(setuputils::DeleteOrDelayFile(folder_ + L"missing.sys", log), 0u);
        EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log), 0u);
    }
    EXPECT_EQ(ReadLog(log_), L"info: No files to remove: " + folder_ + L"missing.sys\n");
    EXPECT_FALSE(Exists(locked));
}

TEST_F(RemoveDriverPackageTest, EmptyKeysGoUpToANonEmptyParentButNeverTheFirst) {
    keys_ = {{HKEY_LOCAL_MACHINE, kTestKey}, {HKEY_CURRENT_USER, L"rdptop"}};
    const std::wstring base = std::wstring(kTestKey) + L"\\rdpkeys";
    WriteRegistryString(HKEY_LOCAL_MACHINE, base, L"Keep", L"1");
    WriteRegistryString(HKEY_LOCAL_MACHINE, base + L"\\A\\B\\C", L"Value", L"1");
    WriteRegistryString(HKEY_CURRENT_USER, L"rdptop\\x\\y", L"Value", L"1");
    {
        setuputils::FileLog log(_wfopen(log_.c_str(), L"wt"));
        setuputils::RegistryValueRemover remover(log);
        EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, base + L"\\A\\B\\C", L"Missing"),
                  static_cast<UINT>(ERROR_INSTALL_FAILURE));
        setuputils::RemoveEmptyKey(HKEY_LOCAL_MACHINE, base + L"\\A\\B\\C", log);
        EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, base + L"\\A\\B\\C")) << "it still holds a value";
        EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, base + L"\\A\\B\\C", L"Value"), 0u);
        EXPECT_EQ(remover.Remove(HKEY_CURRENT_USER, L"rdptop\\x\\y", L"Value"), 0u);
    }
    EXPECT_EQ(ReadLog(log_), LR"(info: Empty key 'SOFTWARE\SetupUtilsTest\rdpkeys\A\B\C' removed.
info: Empty key 'SOFTWARE\SetupUtilsTest\rdpkeys\A\B' removed.
info: Empty key 'SOFTWARE\SetupUtilsTest\rdpkeys\A' removed.
info: Empty key 'rdptop\x\y' removed.
info: Empty key 'rdptop\x' removed.
)");
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, base, L"Keep"), L"1");
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, L"rdptop")) << "the first component stays, even empty";
}

// An HKLM line of the event-log section names a key below HKLM, as it does in
// the install section; only HKR lines are relative to the event-log key.
TEST_F(RemoveDriverPackageTest, EventLogLineUnderHklmIsRemovedFromHklm) {
    const std::wstring id = NewId();
    const std::string line = "HKLM,\"SOFTWARE\\SetupUtilsTest\",Source,,\"x\"\r\n";
    const std::string section = "[EventLog_AddReg]\r\n";
    ASSERT_EQ(Install(L"rdpevent.inf", Replaced(Package("rdpevent", true), section, section + line), id), 0u);
    // Wine skips the event-log section: its values are written here.
    WriteEventLogValues(L"rdpevent");
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Source", L"x");

    EXPECT_NE(Remove(id, nullptr).find(LR"(info: RemoveRegistryAction. 'HKLM\SOFTWARE\SetupUtilsTest\Source'.
info: Empty key 'SOFTWARE\SetupUtilsTest' removed.
info: RemoveRegistryAction success.
)"),
              std::wstring::npos);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTestKey));
}

// "AddReg=" and "CopyFiles=" lines may name several sections; the install
// carries out each of them, so the removal must undo each of them.
TEST_F(RemoveDriverPackageTest, EverySectionOfAnAddRegOrCopyFilesLineIsUndone) {
    const std::wstring id = NewId();
    services_.push_back(L"rdpmore");
    CopyFileW(TestDriverPath().c_str(), (folder_ + L"rdpmore.sys").c_str(), FALSE);
    const std::string inf =
        Replaced(Package("rdpmulti", true), "CopyFiles=Driver_Files\r\nAddReg=Driver_AddReg",
                 "CopyFiles=Driver_Files,More_Files\r\nAddReg=Driver_AddReg,More_AddReg");
    ASSERT_EQ(Install(L"rdpmulti.inf",
                      inf + "[More_AddReg]\r\nHKLM,\"SOFTWARE\\SetupUtilsTest\",More,,\"1\"\r\n"
                            "[More_Files]\r\nrdpmore.sys\r\n[SourceDisksFiles]\r\nrdpmore.sys=1\r\n",
                      id),
              0u);
    ASSERT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"More"), L"1");
    ASSERT_TRUE(Exists(L"C:\\windows\\system32\\drivers\\rdpmore.sys"));

    Remove(id, nullptr);

    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTestKey));
    EXPECT_FALSE(Exists(L"C:\\windows\\system32\\drivers\\rdpmore.sys"));
}

class KSInstUninstallTest : public RemoveDriverPackageTest {
protected:
    KSInstUninstallTest() {
        package_.AddStandardTables();
        package_.Commit();
        session_ = std::make_unique<TestSession>(package_);
        messages_.Clear();
    }
    ~KSInstUninstallTest() override {
        session_.reset();
        package_.Close();
        DeleteFileW(package_.path().c_str());
        RemoveDirectoryW(package_.path().substr(0, package_.path().rfind(L'\\')).c_str());
    }
    UINT Run(const char* action, const std::wstring& data) {
        session_->SetProperty(L"CustomActionData", data);
        messages_.Clear();
        return library_.Action(action)(session_->get());
    }
    std::vector<Texts> Progress() const {
        std::vector<Texts> fields;
        for (const auto& message : messages_.OfType(INSTALLMESSAGE_PROGRESS)) {
            fields.push_back(message.fields);
        }
        return fields;
    }
    std::wstring LastInfo() const {
        const Texts texts = messages_.InfoTexts();
        return texts.empty() ? L"<none>" : texts.back();
    }
    bool Informed(const std::wstring& text) const {
        const Texts texts = messages_.InfoTexts();
        return std::find(texts.begin(), texts.end(), L"KSInstall64:info: " + text) != texts.end();
    }

    SetupUtilsLibrary library_;
    TestPackage package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

TEST_F(KSInstUninstallTest, RemovesThePackageOfItsDataAndNeverFails) {
    const std::wstring id = NewId();
    ASSERT_EQ(Install(L"rdpaction.inf", Package("rdpaction", true), id), 0u);
    const std::wstring sys = L"C:\\windows\\system32\\drivers\\rdpaction.sys";
    const wchar_t separator = L'\x0001';
    const std::wstring data =
        folder_ + separator + L"rdpaction.inf" + separator + id + separator + L"256" + separator + L"3000000";
    const std::vector<Texts> progress = {{L"", L"1", L"0", L"0", L"0"}, {L"", L"2", L"3000000", L"0", L"0"}};

    // The rollback of an installation is the same removal.
    EXPECT_EQ(Run("KSInstRollback", data + separator + L"rdpaction"), 0u);
    EXPECT_EQ(LastInfo(), L"KSInstall64:info: Uninstall driver rdpaction success.");
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(Progress(), progress);
    EXPECT_FALSE(Exists(L"C:\\windows\\inf\\rdpaction.inf"));
    EXPECT_FALSE(Location(id).has_value());
    // Flags 0x100: deleted, not stopped; the running driver's image is moved away.
    EXPECT_TRUE(Informed(L"Don't stop driver"));
    EXPECT_EQ(ServiceState(L"rdpaction"), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_TRUE(Informed(L"File:" + sys + L" success mark delete at reboot."));
    EXPECT_FALSE(Exists(sys));
    EXPECT_EQ(PendingRenames().size(), pendingAtStart_.size() + 2);
    StopAndDelete(L"rdpaction");
    ASSERT_EQ(ServiceState(L"rdpaction"), 0u);

    // Nothing left to remove: the error is reported, the action still succeeds.
    EXPECT_EQ(Run("KSInstUninstall", data + separator + L"rdpaction"), 0u);
    EXPECT_TRUE(Informed(L"GetInfFileLocation error"));
    EXPECT_EQ(LastInfo(), L"KSInstall64:info: No service rdpaction to remove.");
    EXPECT_EQ(messages_.OfType(INSTALLMESSAGE_ERROR).size(), 1u);
    EXPECT_EQ(Progress(), progress);

    // Data without the progress field, or none, is refused before anything is done.
    for (const std::wstring& bad : {data.substr(0, data.rfind(separator)), std::wstring()}) {
        EXPECT_EQ(Run("KSInstUninstall", bad), static_cast<UINT>(ERROR_INSTALL_FAILURE));
        EXPECT_TRUE(messages_.all().empty());
    }
}

class KSUninstallWTest : public RemoveDriverPackageTest {};

TEST_F(KSUninstallWTest, CommandLineRemovesThePackageAndWritesItsLog) {
    // A service that was never started, with neither files nor registry values.
    const std::wstring id = NewId();
    ASSERT_EQ(Install(L"rdpcmd.inf", Package("rdpcmd", false), id, setuputils::kFlagDoNotStart), 0u);
    const std::wstring log = folder_ + L"un install.log";
    // rundll32 looks the entry up with "W" appended first and hands that one
    // wide text. Asked for "KSUninstallW", Wine's rundll32 finds no
    // "KSUninstallWW" and calls the export as an ANSI entry: no log, no removal.
    std::wstring command =
        L"rundll32.exe \"" + SetupUtilsLibrary::Path() + L"\",KSUninstall " + id + L" \"" + log + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process));
    EXPECT_EQ(WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);

    EXPECT_EQ(ReadLog(log), LR"(info: KSInstUninstall start.
info: Inf file location: C:\windows\inf\rdpcmd.inf
info: Found Manufacturer: Models
info: Found TargetOS: NTamd64
info: Found InstallSectionName: Driver_Install
info: StopDeleteService: rdpcmd.
info: Service rdpcmd already stoped.
info: Service rdpcmd deleted.
info: Build file queue.
info: No files found 'Driver_Install.CopyFiles'.
info: No files found 'Driver_Install.AddReg'
info: Inf filename: 'rdpcmd.inf'.
info: SetupUninstallOEMInf done.
info: Inf file 'C:\windows\inf\rdpcmd.inf' deleted.
info: Pnf file 'C:\windows\inf\rdpcmd.pnf' deleted.
info: Inf file location deleted.
info: Uninstall driver rdpcmd success.
)");
    EXPECT_EQ(ServiceState(L"rdpcmd"), 0u);
    EXPECT_FALSE(Exists(L"C:\\windows\\inf\\rdpcmd.inf"));

    // Called in process without arguments: the package recorded under the default component id goes.
    ids_.push_back(setuputils::kDefaultComponentId);
    ASSERT_EQ(Install(L"rdpdefault.inf", Package("rdpdefault", false), setuputils::kDefaultComponentId,
                      setuputils::kFlagDoNotStart),
              0u);
    wchar_t empty[] = L"";
    SetupUtilsLibrary().CommandLineEntry("KSUninstallW")(nullptr, nullptr, empty, SW_HIDE);
    EXPECT_EQ(ServiceState(L"rdpdefault"), 0u);
    EXPECT_FALSE(Exists(L"C:\\windows\\inf\\rdpdefault.inf"));
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
    const auto cleanUp = library_.Action("KSInstCleanUp");

    EXPECT_EQ(cleanUp(session_->get()), 0u);
    EXPECT_FALSE(ReadRegistryString(HKEY_LOCAL_MACHINE, marker, L"Reboot").has_value());
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, marker, L"Other"), L"1") << "a key still in use stays";
    EXPECT_TRUE(messages_.all().empty());

    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, marker.c_str(), L"Other");
    WriteRegistryString(HKEY_LOCAL_MACHINE, marker, L"Reboot", L"Force");
    EXPECT_EQ(cleanUp(session_->get()), 0u);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, marker));
    EXPECT_EQ(messages_.InfoTexts(), Texts{L"KSInstall64:info: Empty key '" + marker + L"' removed."});
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, sibling, L"DisplayName"), L"another product");

    messages_.Clear();
    EXPECT_EQ(cleanUp(session_->get()), 0u) << "no marker";
    EXPECT_TRUE(messages_.all().empty());
}

} // namespace
} // namespace harness
