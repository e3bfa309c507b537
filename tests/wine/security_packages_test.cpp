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

const std::wstring kLsa = L"SYSTEM\\CurrentControlSet\\Control\\Lsa";
const std::wstring kLsaConfig = kLsa + L"\\OSConfig";
const std::wstring kPower = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\Power";
const std::wstring kPackages = L"Security Packages";
const std::wstring kDefaultTls = L"Default TLS SSP";
const std::wstring kOwnDefault = L"NV_Microsoft Unified Security Protocol Provider";

RegistryData MultiString(const std::wstring& text) {
    const auto* bytes = reinterpret_cast<const BYTE*>(text.data());
    return {REG_MULTI_SZ, {bytes, bytes + text.size() * sizeof(wchar_t)}};
}

// The Lsa and Power values as the prefix had them come back after each test.
class SecurityPackagesTest : public ::testing::Test {
protected:
    ~SecurityPackagesTest() override {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kLsa, kPackages, packages_);
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kLsa, kDefaultTls, std::nullopt);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kPower);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kLsaConfig);
    }
    void SetPackages(const std::wstring& list) {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kLsa, kPackages, MultiString(list));
    }
    std::optional<RegistryData> Packages() { return ReadRegistryValue(HKEY_LOCAL_MACHINE, kLsa, kPackages); }
    std::optional<std::wstring> DefaultTls() {
        return ReadRegistryString(HKEY_LOCAL_MACHINE, kLsa, kDefaultTls);
    }
    std::optional<DWORD> Power(const wchar_t* name) {
        return ReadRegistryDword(HKEY_LOCAL_MACHINE, kPower, name);
    }

    // An installation and its rollback: the package goes in after the last entry
    // and the competitors go; fast start-up is off in between; rollback leaves the
    // list as the system's own and turns fast start-up on again.
    void InstallThenRollBack(bool windows10) {
        SetPackages(L"kerberos\0itcssp\0schannel\0SSPP\0\0"s);
        WriteRegistryDword(HKEY_LOCAL_MACHINE, kPower, L"HiberbootEnabled", 1);

        EXPECT_EQ(session_.Run("SslRegInstall"), 0u);
        EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
        EXPECT_EQ(session_.Run("SslRegister"), 0u);
        EXPECT_EQ(Packages(), MultiString(L"kerberos\0schannel\0nvsspap\0\0"s));
        EXPECT_EQ(DefaultTls(), windows10 ? std::optional(kOwnDefault) : std::nullopt);
        EXPECT_EQ(Power(L"HiberbootEnabled"), 0u);
        EXPECT_EQ(Power(L"PreHiberbootEnabled"), 1u);

        EXPECT_EQ(session_.Run("SslRegRollback"), 0u);
        EXPECT_EQ(Packages(), MultiString(L"kerberos\0schannel\0\0"s));
        EXPECT_EQ(DefaultTls(), std::nullopt);
        EXPECT_EQ(Power(L"HiberbootEnabled"), 1u);
        EXPECT_EQ(Power(L"PreHiberbootEnabled"), std::nullopt);
    }

    const std::optional<RegistryData> packages_ = Packages();
    ActionSession session_;
};
class SecurityPackagesOnWindows7 : public SecurityPackagesTest {};
class SecurityPackagesOnWindows10 : public SecurityPackagesTest {};

TEST_F(SecurityPackagesOnWindows7, InstallAndRollbackWithoutDefaultTlsPackage) {
    InstallThenRollBack(false);
}

TEST_F(SecurityPackagesOnWindows10, InstallAndRollbackWithDefaultTlsPackage) {
    InstallThenRollBack(true);
}

// Uninstalling removes every spelling of the provider's packages and only its
// own default; "Schannel" comes back unless the list lives in OSConfig.
TEST_F(SecurityPackagesTest, UninstallKeepsWhatOthersRegistered) {
    for (const std::wstring other :
         {L"Other Vendor TLS", L"nv_microsoft unified security protocol provider"}) {
        SetPackages(L"NVSSL\0kerberos\0nvsspap\0nvtls\0\0"s);
        WriteRegistryString(HKEY_LOCAL_MACHINE, kLsa, kDefaultTls, other);
        EXPECT_EQ(session_.Run("SslRegUninstall"), 0u);
        EXPECT_EQ(Packages(), MultiString(L"kerberos\0nvtls\0Schannel\0\0"s));
        EXPECT_EQ(DefaultTls(), other);
    }
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kLsaConfig, L"Probe", 1);
    SetPackages(L"kerberos\0nvtls\0NVTLS\0\0"s);
    EXPECT_EQ(session_.Run("SslRegUninstall"), 0u);
    EXPECT_EQ(session_.Run("TlsRegUninstall"), 0u);
    EXPECT_EQ(Packages(), MultiString(L"kerberos\0\0"s));
}

// A list that is no REG_MULTI_SZ fails every edit and stays as it was.
TEST_F(SecurityPackagesTest, ListOfAnotherTypeFailsAndIsLeftAlone) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, kLsa, kPackages, L"kerberos");
    const std::optional<RegistryData> before = Packages();
    for (const char* action : {"SslRegInstall", "SslRegRollback", "SslRegUninstall", "TlsRegUninstall"}) {
        EXPECT_EQ(session_.Run(action), static_cast<UINT>(ERROR_INSTALL_FAILURE)) << action;
        EXPECT_EQ(Packages(), before) << action;
    }
}

// Fast start-up off, missing, or of another type: nothing saved, nothing changed.
TEST_F(SecurityPackagesTest, FastStartupThatIsNotOnIsLeftAlone) {
    EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kPower));
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kPower, L"Other", 1);
    EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kPower, L"HiberbootEnabled", 0);
    EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
    EXPECT_EQ(Power(L"HiberbootEnabled"), 0u);
    WriteRegistryString(HKEY_LOCAL_MACHINE, kPower, L"HiberbootEnabled", L"1");
    EXPECT_EQ(session_.Run("HiberbootDisable"), 0u);
    EXPECT_EQ(Power(L"PreHiberbootEnabled"), std::nullopt);
}

// Run with Wine's secur32 trace on: the package name the action hands to
// AddSecurityPackageW shows in the output (Wine's is a stub that answers
// E_NOTIMPL, so the call itself cannot take effect here).
TEST(TlsPackageLoad, AddsThePackageOfThisSystemVersion) {
    ActionSession session;
    EXPECT_EQ(session.Run("SslRegister"), 0u);
}

} // namespace
} // namespace harness
