// The reboot marker the deferred driver actions leave: KSCleanup turns it into
// a reboot request and removes it; KSInstCleanUp removes its value and the
// marker keys that value leaves empty.
#include <optional>

#include <gtest/gtest.h>

#include "action_session.h"
#include "frame/install_log.h"
#include "frame/product_codes.h"
#include "machine.h"
#include "snapshot.h"

namespace harness {
namespace {

const std::wstring kUninstallKey = setuputils::kUninstallKeyPath; // ends in a backslash
const std::wstring kMarkerKey = kUninstallKey + setuputils::kDriverInstallerProductCode;

class KSCleanupTest : public ::testing::Test {
protected:
    ~KSCleanupTest() override { DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMarkerKey); }
};

TEST_F(KSCleanupTest, DriverLogLeavesTheForcedMarker) {
    ActionSession session;
    setuputils::SessionLog(session.get()).NeedReboot();
    EXPECT_EQ(ReadRegistryValue(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot"), RegistryText(L"Force"));
}

// Only "Force" asks for the reboot; a marker that is no text stays.
TEST_F(KSCleanupTest, MarkerBecomesARebootRequestAndGoes) {
    const struct {
        std::optional<RegistryData> marker;
        bool reboot;
        bool stays;
    } cases[] = {{RegistryText(L"Force"), true, false},
                 {RegistryText(L"force"), false, false},
                 {std::nullopt, false, false},
                 {RegistryDwordData(1), false, true}};
    for (const auto& row : cases) {
        if (row.marker) {
            RestoreRegistryValue(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot", row.marker);
        }
        ActionSession session;
        EXPECT_EQ(session.Run("KSCleanup"), 0u);
        EXPECT_EQ(MsiGetMode(session.get(), MSIRUNMODE_REBOOTATEND) != FALSE, row.reboot) << row.reboot;
        EXPECT_EQ(RegistryKeyExists(HKEY_LOCAL_MACHINE, kMarkerKey), row.stays) << row.stays;
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMarkerKey);
    }
}

using KSInstCleanUpTest = KSCleanupTest;

// Another product's key keeps the uninstall key from being left empty.
TEST_F(KSInstCleanUpTest, RemovesTheRebootMarkerAndItsEmptyKeysOnly) {
    const std::wstring sibling = kUninstallKey + L"ksothersetup";
    WriteRegistryString(HKEY_LOCAL_MACHINE, sibling, L"DisplayName", L"another product");
    const Watched uninstall{.keys = {{HKEY_LOCAL_MACHINE, kUninstallKey.substr(0, kUninstallKey.size() - 1)}},
                            .services = {},
                            .files = {}};
    const Snapshot before = TakeSnapshot(uninstall);
    ActionSession session;
    WriteRegistryString(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot", L"Force");
    WriteRegistryString(HKEY_LOCAL_MACHINE, kMarkerKey, L"Other", L"1");
    EXPECT_EQ(session.Run("KSInstCleanUp", L""), 0u);
    EXPECT_EQ(SnapshotChanges(before, TakeSnapshot(uninstall)),
              (Lines{L"+ HKLM\\" + kMarkerKey, L"+ HKLM\\" + kMarkerKey + L" [Other] type 1 '1|'"}))
        << "a key still in use stays";
    EXPECT_TRUE(session.messages().all().empty());

    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kMarkerKey.c_str(), L"Other");
    WriteRegistryString(HKEY_LOCAL_MACHINE, kMarkerKey, L"Reboot", L"Force");
    session.messages().Clear();
    EXPECT_EQ(session.Run("KSInstCleanUp", L""), 0u);
    EXPECT_EQ(session.messages().InfoTexts(),
              (Lines{L"KSInstall64:info: Empty key '" + kMarkerKey + L"' removed."}));
    EXPECT_TRUE(SnapshotChanges(before, TakeSnapshot(uninstall)).empty());
    session.messages().Clear();
    EXPECT_EQ(session.Run("KSInstCleanUp", L""), 0u) << "no marker";
    EXPECT_TRUE(session.messages().all().empty());
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, sibling);
}

} // namespace
} // namespace harness
