// Removal of INF driver packages whose staged INF is gone or belongs to
// another package, and the removers of files in use and of emptied keys.
// (A full removal and the entry points: see the installation tests.)
#include "driver_package_fixture.h"
#include "drivers/remove_driver_package.h"
#include "drivers/removers.h"

namespace harness {
namespace {

class RemoveDriverPackageTest : public DriverTest {
protected:
    // What the removal of the package of id_ logs.
    Texts Remove(const wchar_t* service) {
        log_.lines.clear();
        setuputils::RemoveDriverPackage(id_, service, 0, 0, log_);
        return log_.lines;
    }
};

// Wine's driver-store lookup is a stub failing with 120; a real system has no
// store copy of a staged INF that is gone either.
TEST_F(RemoveDriverPackageTest, WithoutTheStagedInfOnlyTheNamedServiceGoes) {
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, kInfFolder + L"rdpelse.inf");
    EXPECT_EQ(Remove(L"rdpnone"), (Texts{L"KSInstUninstall start.", L"error 2: Can't get inf file location",
                                         L"GetInfFileLocation error", L"StopDeleteService: rdpnone.",
                                         L"No service rdpnone to stop.", L"No service rdpnone to remove."}));
    EXPECT_EQ(Remove(nullptr).back(), L"error 2: GetInfFileLocation");
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpgone.inf");
    EXPECT_TRUE(InOrder(Remove(L"rdpgone"), {L"SetupGetInfDriverStoreLocation fail.",
                                             L"StopDeleteService: rdpgone.", L"Inf file location deleted."}));
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpgone.inf");
    EXPECT_TRUE(InOrder(Remove(nullptr),
                        {L"error 120: SetupGetInfDriverStoreLocation", L"Inf file location deleted."}));
    EXPECT_EQ(Location(other), kInfFolder + L"rdpelse.inf") << "another package's location stays";
}

// A staged INF naming another service, or none, may be another package's: only
// the named service and the location go. One staged as "x.INF" stays too.
TEST_F(RemoveDriverPackageTest, StagedInfOfAnotherPackageStays) {
    ASSERT_EQ(Install(L"rdpown.inf", DriverInf({.service = "rdpown", .copyFiles = true})), 0u);
    names_.push_back(L"rdpother");
    TestDriverService foreign(L"rdpother");
    foreign.Start();
    auto unknown = [](const std::wstring& name) {
        return Texts{L"Opened unknown INF", L"Service " + name + L" deleted.", L"Inf file location deleted."};
    };
    EXPECT_TRUE(InOrder(Remove(L"rdpother"), unknown(L"rdpother")));
    EXPECT_EQ(ServiceState(L"rdpown"), static_cast<DWORD>(SERVICE_RUNNING));
    // The names are compared case-sensitively, but the service manager finds
    // "RDPOWN" as "rdpown": that service goes, the rest of the package stays.
    setuputils::SaveInfLocation(id_, kInfFolder + L"rdpown.inf");
    EXPECT_TRUE(InOrder(Remove(L"RDPOWN"), unknown(L"RDPOWN")));
    EXPECT_EQ(WaitForServiceState(L"rdpown", 0), 0u);
    EXPECT_TRUE(Exists(kDriversFolder + L"rdpown.sys") && Exists(kInfFolder + L"rdpown.inf"));

    // An INF without AddService: without a service name only the location goes.
    ASSERT_EQ(Install(L"rdpplain.inf", DriverInf(""), setuputils::kFlagNoService), 0u);
    EXPECT_TRUE(
        InOrder(Remove(nullptr), {L"Found InstallSectionName: Driver_Install", L"Inf file location deleted.",
                                  L"Uninstall driver unknown success."}));
    EXPECT_TRUE(Exists(kInfFolder + L"rdpplain.inf"));

    ASSERT_EQ(Install(L"rdpupper.INF", DriverInf("rdpupper"), setuputils::kFlagDoNotStart), 0u);
    EXPECT_TRUE(
        InOrder(Remove(nullptr), {L"error 123: Invalid OEMxxxx.inf file name", L"Inf file location deleted.",
                                  L"Uninstall driver rdpupper success."}));
    EXPECT_TRUE(Exists(kInfFolder + L"rdpupper.INF") && Exists(kInfFolder + L"rdpupper.pnf"));
}

// A mapped image cannot be deleted but can be renamed, under Wine as under
// Windows: it is moved to a temporary name deleted at restart. A handle that
// does not share deletion blocks both, and the temporary name is given back.
// Emptied keys go up to a parent in use, but never the first of the path.
TEST_F(RemoveDriverPackageTest, RemoversDelayFilesInUseAndRemoveEmptiedKeys) {
    const std::wstring image = folder_ + L"inuse.dll", locked = folder_ + L"locked.txt";
    ASSERT_TRUE(CopyFileW(SetupUtilsLibrary::Path().c_str(), image.c_str(), FALSE));
    WriteTextFile(locked, "locked");
    HANDLE handle =
        CreateFileW(locked.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
    HMODULE mapped = LoadLibraryExW(image.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    EXPECT_EQ(setuputils::DeleteOrDelayFile(image, log_), 0u);
    EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log_), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    FreeLibrary(mapped);
    CloseHandle(handle);
    Texts moved;
    for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
        if (entry.path().filename().wstring().starts_with(L"csp")) {
            moved.push_back(L"\\??\\" + folder_ + entry.path().filename().wstring());
        }
    }
    EXPECT_EQ(log_.lines[1], L"File:" + image + L" success mark delete at reboot.");
    EXPECT_FALSE(Exists(image)) << "the name is free at once";
    moved.insert(moved.begin(), pendingAtStart_.begin(), pendingAtStart_.end());
    EXPECT_EQ(PendingRenames(), (moved.push_back(L""), moved)) << "one temporary file, deleted at restart";
    log_.lines.clear();
    EXPECT_EQ(setuputils::DeleteOrDelayFile(folder_ + L"missing.sys", log_), 0u);
    EXPECT_EQ(setuputils::DeleteOrDelayFile(locked, log_), 0u);
    EXPECT_EQ(log_.lines, Texts{L"No files to remove: " + folder_ + L"missing.sys"})
        << "a free file goes silently";

    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey, L"Keep", L"1");
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTestKey + L"\\A\\B", L"Value", L"1");
    WriteRegistryString(HKEY_CURRENT_USER, L"rdptop\\x", L"Value", L"1");
    setuputils::RegistryValueRemover remover(log_);
    EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, kTestKey + L"\\A\\B", L"Missing"),
              static_cast<UINT>(ERROR_INSTALL_FAILURE));
    EXPECT_EQ(remover.Remove(HKEY_LOCAL_MACHINE, kTestKey + L"\\A\\B", L"Value") +
                  remover.Remove(HKEY_CURRENT_USER, L"rdptop\\x", L"Value"),
              0u);
    EXPECT_EQ(
        Texts(log_.lines.begin() + 1, log_.lines.end()),
        (Texts{L"Empty key 'SOFTWARE\\SetupUtilsTest\\A\\B' removed.",
               L"Empty key 'SOFTWARE\\SetupUtilsTest\\A' removed.", L"Empty key 'rdptop\\x' removed."}));
    EXPECT_TRUE(RegistryKeyExists(HKEY_CURRENT_USER, L"rdptop")) << "the first component stays, even empty";
    DeleteRegistryTree(HKEY_CURRENT_USER, L"rdptop");
}

} // namespace
} // namespace harness
