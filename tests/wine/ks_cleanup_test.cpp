// KSCleanup: the reboot marker of the deferred driver actions becomes a reboot
// request, and the marker goes.
#include <gtest/gtest.h>

#include "action_session.h"
#include "frame/install_log.h"
#include "frame/product_codes.h"
#include "machine.h"

namespace harness {
namespace {

const std::wstring kMarkerKey =
    std::wstring(setuputils::kUninstallKeyPath) + setuputils::kDriverInstallerProductCode;

class KSCleanupTest : public ::testing::Test {
protected:
    ~KSCleanupTest() override { DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMarkerKey); }

    UINT RunKSCleanup() { return session_.Run("KSCleanup"); }
    bool RebootRequested() { return MsiGetMode(session_.get(), MSIRUNMODE_REBOOTATEND) != FALSE; }

    ActionSession session_;
};

TEST_F(KSCleanupTest, MarkerLeftByTheDriverLogRequestsARebootAndGoes) {
    setuputils::SessionLog log(session_.get());
    log.NeedReboot();
    ASSERT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot"), L"Force");

    EXPECT_EQ(RunKSCleanup(), 0u);

    EXPECT_TRUE(RebootRequested());
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kMarkerKey));
}

TEST_F(KSCleanupTest, OtherMarkerValuesOnlyRemoveTheMarker) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot", L"force");

    EXPECT_EQ(RunKSCleanup(), 0u);

    EXPECT_FALSE(RebootRequested());
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kMarkerKey));
}

TEST_F(KSCleanupTest, UnreadableOrMissingMarkerChangesNothing) {
    EXPECT_EQ(RunKSCleanup(), 0u) << "no marker";
    EXPECT_FALSE(RebootRequested());

    WriteRegistryDword(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot", 1);
    EXPECT_EQ(RunKSCleanup(), 0u) << "marker of the wrong type";
    EXPECT_FALSE(RebootRequested());
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kMarkerKey));
}

} // namespace
} // namespace harness
