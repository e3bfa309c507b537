// The system actions against Wine: the service actions (the host service,
// shared-host services made own-process ones, the smart-card service's start,
// the interactive-services switch), the TLS package actions on both sides of
// the Windows 10 gate with fast start-up around them, and the system-integrity
// actions (verifier runs, check mode, the unhook request to the control device).
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "action_session.h"
#include "frame/handles.h"
#include "library.h"
#include "machine.h"
#include "snapshot.h"

namespace harness {
namespace {

using namespace std::string_literals;
using setuputils::ServiceHandle;
const HKEY kHklm = HKEY_LOCAL_MACHINE;
using Fields = std::vector<std::vector<std::wstring>>;

ServiceHandle Open(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    return ServiceHandle(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
}

DWORD ProcessId(const std::wstring& name) {
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    QueryServiceStatusEx(Open(name).get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                         sizeof(status), &size);
    return status.dwProcessId;
}

// A service of the stand-in program (test_service.cpp), whose command line is
// its name and then `options`, with error control 0; started when `running`,
// stopped and deleted at the end of the test.
struct TestService {
    TestService(const std::wstring& serviceName, DWORD type, DWORD startType, const std::wstring& options,
                bool running = false)
        : name(serviceName), path(L"\"" + TestProgramPath(L"test_service.exe") + L"\" " + name + options) {
        ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        EXPECT_TRUE(ServiceHandle(CreateServiceW(manager.get(), name.c_str(), name.c_str(),
                                                 SERVICE_ALL_ACCESS, type, startType, SERVICE_ERROR_IGNORE,
                                                 path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)));
        EXPECT_TRUE(!running || StartServiceW(Open(name).get(), 0, nullptr)) << GetLastError();
        EXPECT_EQ(WaitForServiceState(name, running ? SERVICE_RUNNING : SERVICE_STOPPED),
                  running ? SERVICE_RUNNING : SERVICE_STOPPED);
    }
    ~TestService() { StopAndDeleteService(name); }

    std::wstring name;
    std::wstring path;
};

const std::wstring kLsa = L"SYSTEM\\CurrentControlSet\\Control\\Lsa";
const std::wstring kPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
const std::wstring kPatches = kSessionManager + L"NvnPatches\\";
const std::wstring kIntegrity = kSessionManager + L"NvnIntegrity";
const std::wstring kTestRecords = L"Software\\SetupUtilsTests";

// A session for the actions, whose own messages alone are recorded; what the
// actions change goes back as the prefix had it.
class SystemActionTest : public ::testing::Test {
protected:
    SystemActionTest() { messages_.Clear(); }
    ~SystemActionTest() override {
        StopAndDeleteService(L"nvcsphclm");
        StopAndDeleteService(L"nvcsp");
        RestoreRegistryValue(kHklm, kLsa, L"Security Packages", packages_);
        RestoreRegistryValue(kHklm, kLsa, L"Default TLS SSP", std::nullopt);
        SetKeySecurity(kIntegrity, L"D:(A;;KA;;;WD)");
        for (const std::wstring& path : {kPower, kLsa + L"\\OSConfig", kIntegrity, kPatches, kTestRecords}) {
            DeleteRegistryTree(kHklm, path);
        }
        DeleteRegistryTree(HKEY_CURRENT_USER, kTestRecords);
    }
    UINT Run(const char* action, const std::wstring& data = L"") { return session_.Run(action, data); }
    Fields Errors() { return messages_.FieldsOf(INSTALLMESSAGE_ERROR); }
    std::optional<RegistryData> Packages() { return ReadRegistryValue(kHklm, kLsa, L"Security Packages"); }

    const std::optional<RegistryData> packages_ = Packages();
    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};
using MsiCreateServiceTest = SystemActionTest;
using UnprotectServiceTest = SystemActionTest;
using SCardSvrTest = SystemActionTest;
using InteractiveServicesTest = SystemActionTest;
using InteractiveServicesOnWindows10 = SystemActionTest;
using InteractiveServicesOnWindows7 = SystemActionTest;
using SecurityPackagesTest = SystemActionTest;
using SecurityPackagesOnWindows7 = SystemActionTest;
using SecurityPackagesOnWindows10 = SystemActionTest;
using SystemIntegrityTest = SystemActionTest;

// The services are only created: Wine has no "nvcsp" group for its svchost to
// run. Wine's NetLocalGroupAdd and NetLocalGroupDel do nothing and answer 0,
// so whether the local group is made or deleted cannot be seen here.
TEST_F(MsiCreateServiceTest, HelperStartsOnDemandOthersAutomaticallyAndADuplicateFails) {
    const std::wstring hostAndGroup = L"|%SystemRoot%\\system32\\svchost.exe -k nvcsp|SmartCardGroup|";
    EXPECT_EQ(Run("MsiCreateService", L"nvcsphclm/Norvane helper/1/Card Users"), 0u);
    EXPECT_EQ(ServiceConfigText(L"nvcsphclm"), L"0x10 3 1" + hostAndGroup + L"Norvane helper");
    EXPECT_EQ(Run("MsiCreateService", L"nvcsp"), 0u);
    EXPECT_EQ(ServiceConfigText(L"nvcsp"), L"0x110 2 1" + hostAndGroup);
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(Run("MsiCreateService", L"nvcsp/Again"), 1603u);
    EXPECT_EQ(Errors(), (Fields{{L"1923", L"nvcsp", L"1073"}}));
    EXPECT_EQ(ServiceConfigText(L"nvcsp"), L"0x110 2 1" + hostAndGroup)
        << "the service there stays as it was";
}

// The host service cannot run under Wine; a running stand-in shows the stop.
// Deleted, a service is gone only once its process has ended: stopped.
TEST_F(MsiCreateServiceTest, RollbackStopsAndDeletesTheServiceAndFailsSilentlyWhenThereIsNone) {
    TestService service(L"NvnRollback", SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, L"", true);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), 0u);
    EXPECT_EQ(WaitForServiceState(L"NvnRollback", 0), 0u);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), 1603u);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback"), 1603u);
    EXPECT_TRUE(Errors().empty());
}

// A shared or protected (" -p") service becomes an own-process one without
// the option; a running one is stopped (the stand-in takes half a second, so
// the action must wait) and runs again in a new process, a stopped one stays
// stopped: a start would show at once as pending or running.
TEST_F(UnprotectServiceTest, SharedOrProtectedServicesGetTheirOwnProcess) {
    struct Case {
        DWORD type, startType;
        const wchar_t* options;
        bool running;
        const wchar_t* config; // then the path without " -p", no group and the name
    };
    const Case cases[] = {
        {SERVICE_WIN32_SHARE_PROCESS, SERVICE_DEMAND_START, L" -k nvcsp -p", true, L"0x10 3 0|"},
        {SERVICE_WIN32_SHARE_PROCESS | SERVICE_INTERACTIVE_PROCESS, SERVICE_AUTO_START, L" -k nvcsp", false,
         L"0x110 2 0|"},
        {SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, L" -k nvcsp", true, L"0x10 3 0|"}};
    for (const Case& c : cases) {
        TestService service(L"NvnProtected", c.type, c.startType, c.options, c.running);
        const DWORD before = ProcessId(service.name);
        EXPECT_EQ(Run("UnprotectService", service.name), 0u);
        const std::wstring path = service.path.substr(0, service.path.find(L" -p"));
        EXPECT_EQ(ServiceConfigText(service.name), c.config + path + L"||" + service.name) << c.options;
        if (c.running) {
            EXPECT_EQ(WaitForServiceState(service.name, SERVICE_RUNNING), DWORD{SERVICE_RUNNING})
                << c.options;
            EXPECT_NE(ProcessId(service.name), before) << c.options;
        } else {
            EXPECT_EQ(ServiceState(service.name), DWORD{SERVICE_STOPPED});
        }
    }
    EXPECT_EQ(Run("UnprotectService", L"NvnAbsent"), 0u);
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(session_.library().Action("UnprotectService")(0), 1603u) << "no CustomActionData";
}

// Wine has no smart-card service of its own: a stand-in takes its name. One
// that starts on demand is left as it is, stopped: a start would show at once.
TEST_F(SCardSvrTest, DisabledBecomesAutomaticAndRunsOnDemandIsLeftAlone) {
    EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
    for (const DWORD startType : {SERVICE_DISABLED, SERVICE_DEMAND_START}) {
        TestService service(L"SCardSvr", SERVICE_WIN32_OWN_PROCESS, startType, L"");
        const Watched watched = {{}, {service.name}, {}};
        const Snapshot before = TakeSnapshot(watched);
        EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
        if (startType == SERVICE_DISABLED) {
            EXPECT_EQ(WaitForServiceState(service.name, SERVICE_RUNNING), DWORD{SERVICE_RUNNING});
            EXPECT_EQ(ServiceConfigText(service.name), L"0x10 2 0|" + service.path + L"||SCardSvr");
        } else {
            EXPECT_EQ(SnapshotChanges(before, TakeSnapshot(watched)), Lines{});
        }
    }
    EXPECT_TRUE(Errors().empty());
}

TEST_F(InteractiveServicesTest, EnableClearsTheSystemSwitch) {
    const wchar_t key[] = L"SYSTEM\\CurrentControlSet\\Control\\Windows";
    WriteRegistryDword(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices", 1);
    EXPECT_EQ(Run("EnableInteractiveServices"), 0u);
    EXPECT_EQ(ReadRegistryDword(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices"), 0u);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices");
}

// Interactive services are forbidden by property from Windows 10 on.
TEST_F(InteractiveServicesOnWindows10, AreForbiddenByProperty) {
    ASSERT_EQ(ReportedMajorVersion(), 10u);
    EXPECT_EQ(Run("SetNoInteractiveServices"), 0u);
    EXPECT_EQ(session_.session().Property(L"NOINTERACTIVESERVICES"), L"1");
}

TEST_F(InteractiveServicesOnWindows7, AreLeftAllowed) {
    ASSERT_EQ(ReportedMajorVersion(), 6u);
    EXPECT_EQ(Run("SetNoInteractiveServices"), 0u);
    EXPECT_EQ(session_.session().Property(L"NOINTERACTIVESERVICES"), L"");
}

// The TLS package actions.

RegistryData List(const std::wstring& entries) {
    return RegistryText(entries, REG_MULTI_SZ);
}

// The package goes in after the last entry and the competitors go; fast
// start-up is off in between; rollback leaves the list as the system's own
// and turns fast start-up on again.
void InstallThenRollBack(ActionSession& session, const std::optional<std::wstring>& defaultTls) {
    RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"kerberos\0itcssp\0schannel\0SSPP\0"s));
    WriteRegistryDword(kHklm, kPower, L"HiberbootEnabled", 1);
    for (const char* action : {"SslRegInstall", "HiberbootDisable", "SslRegister"}) {
        EXPECT_EQ(session.Run(action), 0u) << action;
    }
    EXPECT_EQ(ReadRegistryValue(kHklm, kLsa, L"Security Packages"), List(L"kerberos\0schannel\0nvsspap\0"s));
    EXPECT_EQ(ReadRegistryString(kHklm, kLsa, L"Default TLS SSP"), defaultTls);
    EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"HiberbootEnabled"), 0u);
    EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"PreHiberbootEnabled"), 1u);
    EXPECT_EQ(session.Run("SslRegRollback"), 0u);
    EXPECT_EQ(ReadRegistryValue(kHklm, kLsa, L"Security Packages"), List(L"kerberos\0schannel\0"s));
    EXPECT_EQ(ReadRegistryString(kHklm, kLsa, L"Default TLS SSP"), std::nullopt);
    EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"HiberbootEnabled"), 1u);
    EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"PreHiberbootEnabled"), std::nullopt);
}

TEST_F(SecurityPackagesOnWindows7, InstallAndRollbackWithoutDefaultTlsPackage) {
    InstallThenRollBack(session_, std::nullopt);
}
TEST_F(SecurityPackagesOnWindows10, InstallAndRollbackWithDefaultTlsPackage) {
    InstallThenRollBack(session_, L"NV_Microsoft Unified Security Protocol Provider");
}

// Uninstalling removes every spelling of the provider's packages and only its
// own default; "Schannel" comes back unless the list lives in OSConfig. A
// list that is no REG_MULTI_SZ fails every edit and stays as it was.
TEST_F(SecurityPackagesTest, UninstallKeepsWhatOthersRegistered) {
    for (const std::wstring other :
         {L"Other Vendor TLS", L"nv_microsoft unified security protocol provider"}) {
        RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"NVSSL\0kerberos\0nvsspap\0nvtls\0"s));
        WriteRegistryString(kHklm, kLsa, L"Default TLS SSP", other);
        EXPECT_EQ(Run("SslRegUninstall"), 0u);
        EXPECT_EQ(Packages(), List(L"kerberos\0nvtls\0Schannel\0"s));
        EXPECT_EQ(ReadRegistryString(kHklm, kLsa, L"Default TLS SSP"), other);
    }
    WriteRegistryDword(kHklm, kLsa + L"\\OSConfig", L"Probe", 1);
    RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"kerberos\0nvtls\0NVTLS\0"s));
    EXPECT_EQ(Run("SslRegUninstall"), 0u);
    EXPECT_EQ(Run("TlsRegUninstall"), 0u);
    EXPECT_EQ(Packages(), List(L"kerberos\0"s));

    WriteRegistryString(kHklm, kLsa, L"Security Packages", L"kerberos");
    for (const char* action : {"SslRegInstall", "SslRegRollback", "SslRegUninstall", "TlsRegUninstall"}) {
        EXPECT_EQ(Run(action), 1603u) << action;
        EXPECT_EQ(Packages(), RegistryText(L"kerberos")) << action;
    }
}

// Fast start-up missing, off, or of another type: nothing saved, nothing changed.
TEST_F(SecurityPackagesTest, FastStartupThatIsNotOnIsLeftAlone) {
    EXPECT_EQ(Run("HiberbootDisable"), 0u);
    EXPECT_FALSE(RegistryKeyExists(kHklm, kPower));
    for (const RegistryData& off : {RegistryDwordData(0), RegistryText(L"1")}) {
        RestoreRegistryValue(kHklm, kPower, L"HiberbootEnabled", off);
        EXPECT_EQ(Run("HiberbootDisable"), 0u);
        EXPECT_EQ(ReadRegistryValue(kHklm, kPower, L"HiberbootEnabled"), off);
        EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"PreHiberbootEnabled"), std::nullopt);
    }
}

// Run with Wine's secur32 trace on: the package name the action hands to
// AddSecurityPackageW shows in the output (Wine's is a stub that answers
// E_NOTIMPL, so the call itself cannot take effect here).
TEST(TlsPackageLoad, AddsThePackageOfThisSystemVersion) {
    EXPECT_EQ(ActionSession().Run("SslRegister"), 0u);
}

// The system-integrity actions.

// The stand-in's record of its run on `image` (test_verifier.cpp): the command
// line and, after a tab, 1 when it has a console of its own. Nothing waits for
// the verifier, so its record comes in later.
std::optional<std::wstring> AwaitVerifierRun(const std::wstring& image) {
    const auto run = [&] {
        return ReadRegistryString(HKEY_CURRENT_USER, kTestRecords + L"\\Verifier", image);
    };
    WaitUntil([&] { return run().has_value(); });
    return run();
}

// Wine's 64-bit prefix always has a 32-bit system directory, so every image
// runs twice here (a 32-bit system's single run: native tests). The subkeys
// skipped (no image, an excluded one) are enumerated before one that runs.
TEST_F(SystemIntegrityTest, VerifierRunsOnEachListedImageThirtyTwoBitDirectoryFirst) {
    const std::wstring verifier = L"\"" + TestProgramPath(L"test_verifier.exe") + L"\"";
    EXPECT_EQ(Run("UpdateSystemIntegrity", verifier), 0u);
    EXPECT_TRUE(messages_.all().empty()) << "no list, no run";
    for (const auto& [subkey, name, image] : {std::tuple{L"ADVAPI32", L"Image Dll", L"advapi32.dll"},
                                              {L"ADVAPI32", L"Patch Dll64", L"nvpatch64.dll"},
                                              {L"Bare", L"Patch Dll64", L"nvpatch64.dll"},
                                              {L"Msi", L"Image Dll", L"MSI.DLL"},
                                              {L"Excluded", L"Image Dll", L"msxml5.dll"}}) {
        WriteRegistryString(kHklm, kPatches + subkey, name, image);
    }
    // Leading switches of the verifier command stay in front of the added ones.
    EXPECT_EQ(Run("UpdateSystemIntegrity", verifier + L" /q"), 0u);
    const std::wstring prefix = verifier + L" /q -addreg -file ";
    const std::vector<std::wstring> lines = {
        prefix + L"C:\\windows\\syswow64\\advapi32.dll", prefix + L"C:\\windows\\system32\\advapi32.dll",
        prefix + L"C:\\windows\\syswow64\\MSI.DLL", prefix + L"C:\\windows\\system32\\MSI.DLL"};
    // Each run is announced before it starts, and starts as given, with a
    // console of its own (no window).
    EXPECT_EQ(messages_.InfoTexts(), lines);
    for (const std::wstring& line : lines) {
        EXPECT_EQ(AwaitVerifierRun(line.substr(prefix.size())), line + L"\t1");
    }
    // A verifier that cannot start is reported (Wine puts "Info [1]. " in
    // front of the template); its result does not matter.
    messages_.Clear();
    DeleteRegistryTree(kHklm, kPatches + L"ADVAPI32");
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\"";
    EXPECT_EQ(Run("UpdateSystemIntegrity", absent), 0u);
    const auto info = messages_.OfType(INSTALLMESSAGE_INFO);
    ASSERT_EQ(info.size(), 4u);
    EXPECT_EQ(info[0].text, absent + L" -addreg -file C:\\windows\\syswow64\\MSI.DLL");
    EXPECT_TRUE(info[1].fields[0].ends_with(L"CreateProcess() failed: [1]")) << info[1].fields[0];
    EXPECT_EQ(info[1].fields[1], L"2");
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(session_.library().Action("UpdateSystemIntegrity")(0), 1603u) << "no session, no command";
}

// The mode is written with no more access than KEY_WRITE; where even that is
// denied it stays as it was, and the action still succeeds.
TEST_F(SystemIntegrityTest, CheckModeIsTwoWhenOnZeroWhenOffAndNeverFails) {
    using Step = std::tuple<const char*, const wchar_t*, std::optional<DWORD>>; // nullopt: unreadable
    for (const auto& [action, access, mode] : {Step{"CheckModeOn", L"", 2}, Step{"CheckModeOff", L"", 0},
                                               Step{"CheckModeOn", L"D:(A;;0x20006;;;WD)", std::nullopt},
                                               Step{"CheckModeOff", L"D:(A;;KR;;;WD)", 2}}) {
        ASSERT_TRUE(*access == L'\0' || SetKeySecurity(kIntegrity, access) == 0);
        EXPECT_EQ(Run(action), 0u) << action;
        EXPECT_EQ(ReadRegistryDword(kHklm, kIntegrity, L"CheckMode"), mode) << action;
    }
    EXPECT_TRUE(messages_.all().empty());
}

// The test driver, run as the service "NvnCtrl", serves the control device and
// records the request. Wine gives a driver no security context on open, so the
// access asked (none) is not seen; the share mode (read and write) is.
TEST_F(SystemIntegrityTest, UnHookSendsOneBufferlessRequestToTheDeviceWhenItIsThere) {
    EXPECT_EQ(Run("UnHookSystem"), 0u);
    TestDriverService control(L"NvnCtrl");
    control.Start();
    ASSERT_EQ(control.State(), DWORD{SERVICE_RUNNING});
    EXPECT_EQ(Run("UnHookSystem"), 0u);
    const auto recorded = [](const wchar_t* name) {
        return ReadRegistryDword(kHklm, kTestRecords + L"\\NvnCtrl", name);
    };
    for (const auto& [name, value] : {std::pair{L"Requests", 1u},
                                      {L"OpenShare", 3u},
                                      {L"IoControlCode", 0x222000u},
                                      {L"InputLength", 0u},
                                      {L"OutputLength", 0u}}) {
        EXPECT_EQ(recorded(name), value) << name;
    }
    EXPECT_TRUE(WaitUntil([&] { return recorded(L"Closes") == 1u; })) << "the device handle stays open";
    EXPECT_TRUE(messages_.all().empty());
}

} // namespace
} // namespace harness
