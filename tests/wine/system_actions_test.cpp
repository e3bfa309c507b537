// The service, TLS package and system-integrity actions against Wine.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "action_session.h"
#include "machine.h"

namespace harness {
namespace {

using namespace std::string_literals;
const HKEY kHklm = HKEY_LOCAL_MACHINE;

const std::wstring kLsa = L"SYSTEM\\CurrentControlSet\\Control\\Lsa";
const std::wstring kPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
const std::wstring kTestRecords = L"Software\\SetupUtilsTests";

// A session whose own messages alone are recorded; what the actions change is put back.
class SystemActionTest : public ::testing::Test {
protected:
    ~SystemActionTest() override {
        StopAndDeleteService(L"nvcsphclm");
        StopAndDeleteService(L"nvcsp");
        RestoreRegistryValue(kHklm, kLsa, L"Security Packages", packages_);
        RestoreRegistryValue(kHklm, kLsa, L"Default TLS SSP", std::nullopt);
        for (const std::wstring& path : {kPower, kTestRecords}) {
            DeleteRegistryTree(kHklm, path);
        }
        DeleteRegistryTree(HKEY_CURRENT_USER, kTestRecords);
    }
    UINT Run(const char* action, const std::wstring& data = L"") { return session_.Run(action, data); }

    const std::optional<RegistryData> packages_ = ReadRegistryValue(kHklm, kLsa, L"Security Packages");
    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};
using MsiCreateServiceTest = SystemActionTest;
using SecurityPackagesOnWindows10 = SystemActionTest;
using SystemIntegrityTest = SystemActionTest;

// Wine's svchost has no "nvcsp" group and its NetLocalGroupAdd/Del do nothing: a test driver shows the stop.
TEST_F(MsiCreateServiceTest, HelperStartsOnDemandInTheCardGroupRollbackDeletes) {
    const std::wstring hostAndGroup = L"|%SystemRoot%\\system32\\svchost.exe -k nvcsp|SmartCardGroup|";
    EXPECT_EQ(Run("MsiCreateService", L"nvcsphclm/Norvane helper/1/Card Users"), 0u);
    EXPECT_EQ(ServiceConfigText(L"nvcsphclm"), L"0x10 3 1" + hostAndGroup + L"Norvane helper");
    TestDriverService service(L"NvnRollback");
    service.Start();
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), 0u);
    EXPECT_EQ(WaitForServiceState(L"NvnRollback", 0), 0u);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback"), 1603u);
}

RegistryData List(const std::wstring& entries) {
    return RegistryText(entries, REG_MULTI_SZ);
}

// The package goes in last, competitors go, fast start-up is off; rollback undoes both.
void InstallThenRollBack(ActionSession& session, const std::optional<std::wstring>& defaultTls) {
    RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"kerberos\0itcssp\0schannel\0SSPP\0"s));
    WriteRegistryDword(kHklm, kPower, L"HiberbootEnabled", 1);
    for (const char* action : {"SslRegInstall", "HiberbootDisable", "SslRegister"}) {
        EXPECT_EQ(session.Run(action), 0u) << action;
    }
    EXPECT_EQ(ReadRegistryValue(kHklm, kLsa, L"Security Packages"), List(L"kerberos\0schannel\0nvsspap\0"s));
    EXPECT_EQ(ReadRegistryString(kHklm, kLsa, L"Default TLS SSP"), defaultTls);
    EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"HiberbootEnabled"), 0u);
    EXPECT_EQ(session.Run("SslRegRollback"), 0u);
    EXPECT_EQ(ReadRegistryValue(kHklm, kLsa, L"Security Packages"), List(L"kerberos\0schannel\0"s));
    EXPECT_EQ(ReadRegistryString(kHklm, kLsa, L"Default TLS SSP"), std::nullopt);
    EXPECT_EQ(ReadRegistryDword(kHklm, kPower, L"HiberbootEnabled"), 1u);
}

// From Windows 10 on the package is the default TLS one and interactive services are forbidden.
TEST_F(SecurityPackagesOnWindows10, InstallAndRollbackWithDefaultTlsPackageInteractiveServicesForbidden) {
    InstallThenRollBack(session_, L"NV_Microsoft Unified Security Protocol Provider");
    EXPECT_EQ(Run("SetNoInteractiveServices"), 0u);
    EXPECT_EQ(session_.session().Property(L"NOINTERACTIVESERVICES"), L"1");
}

// Wine's AddSecurityPackageW is a stub: the package name shows in its trace.
TEST(TlsPackageLoad, AddsThePackageOfThisSystemVersion) {
    EXPECT_EQ(ActionSession().Run("SslRegister"), 0u);
}

// The test driver serves the control device and records the request.
TEST_F(SystemIntegrityTest, UnHookSendsOneBufferlessRequestToTheDeviceWhenItIsThere) {
    TestDriverService control(L"NvnCtrl");
    control.Start();
    ASSERT_EQ(ServiceState(L"NvnCtrl"), DWORD{SERVICE_RUNNING});
    EXPECT_EQ(Run("UnHookSystem"), 0u);
    const auto recorded = [](const wchar_t* name) {
        return ReadRegistryDword(kHklm, kTestRecords + L"\\NvnCtrl", name);
    };
    for (const auto& [name, value] : {std::pair{L"Requests", 1u}, {L"IoControlCode", 0x222000u}}) {
        EXPECT_EQ(recorded(name), value) << name;
    }
}

} // namespace
} // namespace harness
