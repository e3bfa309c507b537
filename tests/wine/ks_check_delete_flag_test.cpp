// KSCheckDeleteFlag with a real kernel driver service running in the prefix.
#include "driver_package_fixture.h"
#include "machine.h"

namespace harness {
namespace {

constexpr wchar_t kServiceKey[] = L"SYSTEM\\CurrentControlSet\\Services\\ksflagdrv";

class KSCheckDeleteFlagTest : public DriverPackageTest {
protected:
    // A package whose component "ksflagdrv64" stands for the service "ksflagdrv".
    void AddFlaggedDriver(const std::wstring& feature = L"Main") {
        AddDriver(L"ksflagdrv64", L"ksflagdrv.inf", 0, L"", feature);
    }
    std::wstring RunAndReadFlag() {
        EXPECT_EQ(library_.Action("KSCheckDeleteFlag")(session_->get()), 0u);
        return session_->Property(L"DELETEFLAG");
    }
    TestDriverService service_{L"ksflagdrv"};
};

TEST_F(KSCheckDeleteFlagTest, RunningDriverThatAskedForDeletionSetsTheFlag) {
    service_.Start();
    ASSERT_EQ(service_.State(), static_cast<DWORD>(SERVICE_RUNNING));
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"DeleteFlag", 1);
    AddFlaggedDriver();
    OpenCosted();

    EXPECT_EQ(RunAndReadFlag(), L"1");
}

TEST_F(KSCheckDeleteFlagTest, FlagNeedsARunningDriverBeingInstalledAndANonZeroDword) {
    AddFlaggedDriver(L"Off");
    package_.Sql(L"UPDATE `Feature` SET `Level` = 0 WHERE `Feature` = 'Off'");
    OpenCosted();
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"DeleteFlag", 1);

    EXPECT_EQ(RunAndReadFlag(), L"") << "stopped driver";
    service_.Start();
    EXPECT_EQ(RunAndReadFlag(), L"") << "component not being installed";

    MsiSetFeatureStateW(session_->get(), L"Off", INSTALLSTATE_LOCAL);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"DeleteFlag", 0);
    EXPECT_EQ(RunAndReadFlag(), L"") << "flag value 0";
    WriteRegistryString(HKEY_LOCAL_MACHINE, kServiceKey, L"DeleteFlag", L"1");
    EXPECT_EQ(RunAndReadFlag(), L"") << "flag of the wrong type";
    WriteRegistryDword(HKEY_LOCAL_MACHINE, kServiceKey, L"DeleteFlag", 7);
    EXPECT_EQ(RunAndReadFlag(), L"1");
}

TEST_F(KSCheckDeleteFlagTest, NameBeginningWith64IsLookedUpWhole) {
    // Only a "64" after the first character cuts the name; this one is not cut at all.
    TestDriverService service(L"64flag64");
    service.Start();
    WriteRegistryDword(HKEY_LOCAL_MACHINE, L"SYSTEM\\CurrentControlSet\\Services\\64flag64", L"DeleteFlag",
                       1);
    AddDriver(L"64flag64", L"x.inf");
    OpenCosted();

    EXPECT_EQ(RunAndReadFlag(), L"1");
}

} // namespace
} // namespace harness
