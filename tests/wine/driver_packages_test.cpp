// Driver packages installed and removed against Wine's setup API, service manager and registry:
// InstallService, RemoveDriverPackage, the deferred actions and the command-line entry points.
#include "action_session.h"
#include "driver_package_fixture.h"
#include "drivers/remove_driver_package.h"

namespace harness {
namespace {

using InstallServiceTest = DriverTest;

// A reinstall stops the running driver first: its missing image then fails the start (Windows: 2).
// What an installation and its removal do otherwise: the sample's round trip.
TEST_F(InstallServiceTest, ReinstallStopsTheRunningDriverFirst) {
    ASSERT_EQ(Install(L"isvc.inf", DriverInf({.service = "isvc", .copyFiles = true})), 0u);
    ASSERT_EQ(WaitForServiceState(L"isvc", SERVICE_RUNNING), static_cast<DWORD>(SERVICE_RUNNING));
    std::string gone = DriverInf({"isvc"});
    EXPECT_EQ(Install(L"isvc3.inf", gone.replace(gone.find("isvc.sys"), 4, "gone")),
              static_cast<DWORD>(ERROR_DLL_INIT_FAILED));
    EXPECT_EQ(WaitForServiceState(L"isvc", SERVICE_STOPPED), static_cast<DWORD>(SERVICE_STOPPED));
}

// No AddService line: nothing staged; no manufacturer: DefaultInstall; flag 0x20: the
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
}

using RemoveDriverPackageTest = DriverTest;

// Without its own staged INF (Wine's driver-store lookup is a stub) only the named service (whatever
// its case) and the location go.
TEST_F(RemoveDriverPackageTest, WithoutItsOwnStagedInfOnlyTheNamedServiceAndTheLocationGo) {
    ASSERT_EQ(Install(L"rdp.inf", DriverInf({.service = "rdp", .copyFiles = true})), 0u);
    const std::wstring other = NewId();
    setuputils::SaveInfLocation(other, kInfFolder + L"rdp.inf");
    setuputils::RemoveDriverPackage(id_, L"RDP", 0, log_);
    EXPECT_TRUE(
        InOrder(log_.lines, {L"Opened unknown INF", L"Service RDP stopped.", L"Service RDP deleted."}));
    EXPECT_FALSE(Location(id_));
    EXPECT_EQ(WaitForServiceState(L"rdp", 0), 0u);
    EXPECT_TRUE(Exists(kDriversFolder + L"rdp.sys") && Exists(kInfFolder + L"rdp.inf"));
    EXPECT_EQ(Location(other), kInfFolder + L"rdp.inf") << "another package's location stays";
}

using KSInstInstallTest = DriverTest;

// A failed install is error 555; removal never fails, and with flag 0x100
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
    EXPECT_EQ(messages.FieldsOf(INSTALLMESSAGE_ERROR).at(0).at(0), L"555");

    WriteInf(L"ksinst.inf", DriverInf({.service = "ksinst", .copyFiles = true}));
    EXPECT_EQ(run("KSInstInstall", data), 0u);
    EXPECT_EQ(messages.InfoTexts().back(), kInfo + L"Install driver ksinst success.");
    EXPECT_EQ(run("KSInstRollback", data + kSeparator + L"ksinst"), 0u);
    EXPECT_TRUE(InOrder(messages.InfoTexts(),
                        {kInfo + L"Don't stop driver", kInfo + L"Uninstall driver ksinst success."}));
    EXPECT_EQ(ServiceState(L"ksinst"), static_cast<DWORD>(SERVICE_RUNNING));
    StopAndDeleteService(L"ksinst");
    EXPECT_EQ(run("KSInstUninstall", data + kSeparator + L"ksinst"), 0u) << "nothing left to remove";
}

using KSInstallWTest = DriverTest;

// KSInstallW <inf> [<id> [<log>]] installs; KSUninstallW [<id> [<log>]] removes. Called by the names
// rundll32 looks for first, which must reach them.
TEST_F(KSInstallWTest, InstallsAndRemovesByCommandLine) {
    auto call = [&](const char* entry, std::wstring commandLine) {
        library_.CommandLineEntry(entry)(nullptr, nullptr, commandLine.data(), SW_HIDE);
        return ReadTextFile(folder_ + L"a log.txt");
    };
    const std::wstring log = L" \"" + folder_ + L"a log.txt\"";
    const std::wstring inf = WriteInf(L"kscmd.inf", DriverInf({.service = "kscmd", .copyFiles = true}));
    EXPECT_TRUE(
        call("KSInstallWW", inf + L" " + id_ + log).ends_with("info: Install driver kscmd success.\r\n"));
    EXPECT_TRUE(call("KSUninstallWW", id_ + log).ends_with("info: Uninstall driver kscmd success.\r\n"));
    EXPECT_EQ(WaitForServiceState(L"kscmd", 0), 0u);
}

} // namespace
} // namespace harness
