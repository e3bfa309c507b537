// The immediate driver actions in real sessions: what KSProcess schedules, when DELETEFLAG is set,
// and how KSCleanup and KSInstCleanUp handle the reboot marker.
#include "action_session.h"
#include "driver_package_fixture.h"
#include "frame/product_codes.h"
#include "frame/windows_version.h"

namespace harness {
namespace {

using KSProcessTest = DriverTest;

// Uninstall data ends in the service of the INF's install section when it names one (a short|long
// value names no file here). Each package scheduled moves the progress on.
TEST_F(KSProcessTest, RemovalSchedulesOnlyUninstallWithTheInfService) {
    AddDriver(L"a_service", L"a.inf", 0x100);
    AddDriver(L"b_noservice", L"b.inf");
    AddDriver(L"c_shortlong", L"C~1.INF|c.inf");
    WritePackageFile(L"a.inf", DriverInf({"nvdrv"}));
    WritePackageFile(L"b.inf", DriverInf({}));
    WritePackageFile(L"c.inf", DriverInf({"cdrv"}));
    OpenCosted({{L"REMOVE", L"ALL"}}, L"");
    EXPECT_EQ(Run("KSProcess"), 0u);
    EXPECT_EQ(messages_.StartedActions(), (Texts(3, L"KSUninstall64")));
    EXPECT_EQ(Informed(ActionData(folder_, L"a.inf", ids_[1], L"256") + kSeparator + L"nvdrv"), 1);
    EXPECT_EQ(Informed(ActionData(folder_, L"b.inf", ids_[2], L"0")), 1);
    EXPECT_EQ(Informed(ActionData(folder_, L"C~1.INF|c.inf", ids_[3], L"0")), 1);
    EXPECT_EQ(Informed(kInfo + L"Found InstallSectionName: Driver_Install"), 2);
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_PROGRESS).back(), (Texts{L"2", L"30", L"0", L"0"}));
}

// An unknown reference stops the walk with that status.
TEST_F(KSProcessTest, FailedSchedulingStopsWithTheInstallerStatus) {
    AddDriver(L"a_first", L"a.inf", 0, L"NoSuchComponent");
    AddDriver(L"b_second", L"b.inf");
    OpenCosted();
    EXPECT_EQ(Run("KSProcess"), static_cast<UINT>(ERROR_UNKNOWN_COMPONENT));
    EXPECT_TRUE(messages_.StartedActions().empty());
}

// From Windows 10 on x.ms.inf stands for x.inf. A package whose reference comes is installed; one
// whose reference goes or stays absent is not, nor one that stays absent itself.
void CheckInfVariant(KSProcessTest& test, DWORD major, const std::wstring& suffix,
                     const std::wstring& service) {
    ASSERT_EQ(setuputils::GetNtVersion().major, major) << "the test prefix reports the wrong Windows version";
    test.AddDriver(L"a_long", L"drv.inf");
    test.AddDriver(L"b_short", L"SHORT~1.INF|shortlong.inf", 0, L"d_refcomes", L"Later");
    test.AddDriver(L"c_refgoes", L"c.inf", 0, L"a_long", L"Later");
    test.AddDriver(L"d_refcomes", L"d.inf", 0, L"", L"Later");
    test.AddDriver(L"e_absent", L"e.inf", 0, L"", L"Off");
    test.AddDriver(L"f_refabsent", L"f.inf", 0, L"e_absent", L"Later");
    test.package_.Sql(L"UPDATE `Feature` SET `Level` = 0 WHERE `Feature` = 'Off'");
    test.WritePackageFile(L"drv.inf", DriverInf({"plaindrv"}));
    test.WritePackageFile(L"drv.ms.inf", DriverInf({"msdrv"}));
    test.WritePackageFile(L"shortlong.inf", DriverInf({}));
    auto& session = test.OpenCosted({{L"ADDLOCAL", L"Later"}, {L"REMOVE", L"Main"}}, L"ADDLOCAL=Main");
    EXPECT_EQ(test.Run("KSProcess"), 0u);
    EXPECT_EQ(test.messages_.StartedActions().size(), 5u);
    EXPECT_EQ(test.Informed(ActionData(test.folder_, L"SHORT~1.INF|shortlong" + suffix, test.ids_[2], L"0")),
              1);
    EXPECT_EQ(test.Informed(ActionData(test.folder_, L"d" + suffix, test.ids_[4], L"0")), 1);
    EXPECT_EQ(session.Property(L"KSUninstall64"),
              ActionData(test.folder_, L"drv" + suffix, test.ids_[1], L"0") + kSeparator + service);
}

using KSProcessOnWindows10 = KSProcessTest;
using KSProcessOnWindows7 = KSProcessTest;

TEST_F(KSProcessOnWindows10, SchedulesTheMsInfVariant) {
    CheckInfVariant(*this, 10, L".ms.inf", L"msdrv");
}

TEST_F(KSProcessOnWindows7, SchedulesThePlainInf) {
    CheckInfVariant(*this, 6, L".inf", L"plaindrv");
}

// DELETEFLAG needs a component being installed whose service ("ksflagdrv") runs and holds a
// DeleteFlag.
using KSCheckDeleteFlagTest = DriverTest;

TEST_F(KSCheckDeleteFlagTest, NeedsARunningDriverBeingInstalled) {
    const std::wstring key = L"SYSTEM\\CurrentControlSet\\Services\\ksflagdrv";
    TestDriverService service(L"ksflagdrv");
    AddDriver(L"ksflagdrv64", L"ksflagdrv.inf", 0, L"", L"Off");
    package_.Sql(L"UPDATE `Feature` SET `Level` = 0 WHERE `Feature` = 'Off'");
    OpenCosted();
    auto flag = [&] {
        EXPECT_EQ(Run("KSCheckDeleteFlag"), 0u);
        return session_->Property(L"DELETEFLAG");
    };
    WriteRegistryDword(HKEY_LOCAL_MACHINE, key, L"DeleteFlag", 7);
    EXPECT_EQ(flag(), L"") << "stopped driver";
    service.Start();
    EXPECT_EQ(flag(), L"") << "component not being installed";
    MsiSetFeatureStateW(session_->get(), L"Off", INSTALLSTATE_LOCAL);
    EXPECT_EQ(flag(), L"1");
}

// KSCleanup: "Force" asks for the reboot; a marker that is no text stays.
TEST(KSCleanupTest, MarkerBecomesARebootRequestAndGoes) {
    const std::wstring key =
        std::wstring(setuputils::kUninstallKeyPath) + setuputils::kDriverInstallerProductCode;
    for (const auto& [marker, reboot, stays] :
         {std::tuple{std::optional(RegistryText(L"Force")), true, false},
          {std::optional<RegistryData>(), false, false},
          {std::optional(RegistryDwordData(1)), false, true}}) {
        if (marker) {
            RestoreRegistryValue(HKEY_LOCAL_MACHINE, key, L"Reboot", marker);
        }
        ActionSession session;
        EXPECT_EQ(session.Run("KSCleanup"), 0u);
        EXPECT_EQ(MsiGetMode(session.get(), MSIRUNMODE_REBOOTATEND) != FALSE, reboot);
        EXPECT_EQ(RegistryKeyExists(HKEY_LOCAL_MACHINE, key), stays);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, key);
    }
}

} // namespace
} // namespace harness
