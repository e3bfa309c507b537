// The TLS package actions against the security authority's key of the test
// prefix, on both sides of the Windows 10 gate, and fast start-up around them.
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

RegistryData List(const std::wstring& entries) {
    return RegistryText(entries, REG_MULTI_SZ);
}

// The Lsa values as the prefix had them come back after each test.
class SecurityPackagesTest : public ::testing::Test {
protected:
    ~SecurityPackagesTest() override {
        RestoreRegistryValue(kHklm, kLsa, L"Security Packages", packages_);
        RestoreRegistryValue(kHklm, kLsa, L"Default TLS SSP", std::nullopt);
        DeleteRegistryTree(kHklm, kPower);
        DeleteRegistryTree(kHklm, kLsa + L"\\OSConfig");
    }
    std::optional<RegistryData> Packages() { return ReadRegistryValue(kHklm, kLsa, L"Security Packages"); }
    std::optional<std::wstring> DefaultTls() { return ReadRegistryString(kHklm, kLsa, L"Default TLS SSP"); }
    std::optional<DWORD> Power(const wchar_t* name) { return ReadRegistryDword(kHklm, kPower, name); }

    // The package goes in after the last entry and the competitors go; fast
    // start-up is off in between; rollback leaves the list as the system's own
    // and turns fast start-up on again.
    void InstallThenRollBack(const std::optional<std::wstring>& defaultTls) {
        RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"kerberos\0itcssp\0schannel\0SSPP\0"s));
        WriteRegistryDword(kHklm, kPower, L"HiberbootEnabled", 1);
        for (const char* action : {"SslRegInstall", "HiberbootDisable", "SslRegister"}) {
            EXPECT_EQ(session_.Run(action), 0u) << action;
        }
        EXPECT_EQ(Packages(), List(L"kerberos\0schannel\0nvsspap\0"s));
        EXPECT_EQ(DefaultTls(), defaultTls);
        EXPECT_EQ(Power(L"HiberbootEnabled"), 0u);
        EXPECT_EQ(Power(L"PreHiberbootEnabled"), 1u);
        EXPECT_EQ(session_.Run("SslRegRollback"), 0u);
        EXPECT_EQ(Packages(), List(L"kerberos\0schannel\0"s));
        EXPECT_EQ(DefaultTls(), std::nullopt);
        EXPECT_EQ(Power(L"HiberbootEnabled"), 1u);
        EXPECT_EQ(Power(L"PreHiberbootEnabled"), std::nullopt);
    }

    const std::optional<RegistryData> packages_ = Packages();
    ActionSession session_;
};
using SecurityPackagesOnWindows7 = SecurityPackagesTest;
using SecurityPackagesOnWindows10 = SecurityPackagesTest;

TEST_F(SecurityPackagesOnWindows7, InstallAndRollbackWithoutDefaultTlsPackage) {
    InstallThenRollBack(std::nullopt);
}
TEST_F(SecurityPackagesOnWindows10, InstallAndRollbackWithDefaultTlsPackage) {
    InstallThenRollBack(L"NV_Microsoft Unified Security Protocol Provider");
}

// Uninstalling removes every spelling of the provider's packages and only its
// own default; "Schannel" comes back unless the list lives in OSConfig. A
// list that is no REG_MULTI_SZ fails every edit and stays as it was.
TEST_F(SecurityPackagesTest, UninstallKeepsWhatOthersRegistered) {
    for (const std::wstring other :
         {L"Other Vendor TLS", L"nv_microsoft unified security protocol provider"}) {
        RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"NVSSL\0kerberos\0nvsspap\0nvtls\0"s));
        WriteRegistryString(kHklm, kLsa, L"Default TLS SSP", other);
        EXPECT_EQ(session_.Run("SslRegUninstall"), 0u);
        EXPECT_EQ(Packages(), List(L"kerberos\0nvtls\0Schannel\0"s));
        EXPECT_EQ(DefaultTls(), other);
    }
    WriteRegistryDword(kHklm, kLsa + L"\\OSConfig", L"Probe", 1);
    RestoreRegistryValue(kHklm, kLsa, L"Security Packages", List(L"kerberos\0nvtls\0NVTLS\0"s));
    EXPECT_EQ(session_.Run("SslRegUninstall"), 0u);
    EXPECT_EQ(session_.Run("TlsRegUninstall"), 0u);
    EXPECT_EQ(Packages(), List(L"kerberos\0"s));

    WriteRegistryString(kHklm, kLsa, L"Security Packages", L"kerberos");
    for (const char* action : {"SslRegInstall", "SslRegRollback", "SslRegUninstall", "TlsRegUninstall"}) {
        EXPECT_EQ(session_.Run(action), 1603u) << action;
        EXPECT_EQ(Packages(), RegistryText(L"kerberos")) << action;
    }
}

// Fast start-up missing, off, or of another type: nothing saved, nothing changed.
TEST_F(SecurityPackagesTest, FastStartupThatIsNotOnIsLeftAlone) {
    EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
    EXPECT_FALSE(RegistryKeyExists(kHklm, kPower));
    for (const RegistryData& off : {RegistryDwordData(0), RegistryText(L"1")}) {
        RestoreRegistryValue(kHklm, kPower, L"HiberbootEnabled", off);
        EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
        EXPECT_EQ(ReadRegistryValue(kHklm, kPower, L"HiberbootEnabled"), off);
        EXPECT_EQ(Power(L"PreHiberbootEnabled"), std::nullopt);
    }
}

// Run with Wine's secur32 trace on: the package name the action hands to
// AddSecurityPackageW shows in the output (Wine's is a stub that answers
// E_NOTIMPL, so the call itself cannot take effect here).
TEST(TlsPackageLoad, AddsThePackageOfThisSystemVersion) {
    EXPECT_EQ(ActionSession().Run("SslRegister"), 0u);
}

} // namespace
} // namespace harness
