// What every action stands on, in a real session: session readers, the records
// posted, the driver log and its reboot marker; driver actions with nothing to do.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include <windows.h>

#include "action_session.h"
#include "frame/install_log.h"
#include "frame/product_codes.h"
#include "frame/session.h"
#include "machine.h"

namespace setuputils {
namespace {

using Fields = std::vector<std::wstring>;

const std::wstring kMarkerPath = std::wstring(kUninstallKeyPath) + kDriverInstallerProductCode;

class SessionTest : public ::testing::Test {
protected:
    // Fields of each message posted since the last call, field 0 (the installer's header) left out.
    std::vector<Fields> Posted() {
        std::vector<Fields> posted;
        for (const auto& message : messages_.all()) {
            posted.emplace_back(message.fields.begin() + 1, message.fields.end());
            posted.back().insert(posted.back().begin(), std::to_wstring(message.type >> 24));
        }
        messages_.Clear();
        return posted;
    }

    harness::ActionSession session_;
    harness::MessageRecorder& messages_ = session_.messages();
};

// An unset or empty property leaves the caller's value alone; a shorter value
// read into the same string leaves nothing of the longer one behind.
TEST_F(SessionTest, PropertiesReadWhole) {
    std::wstring value;
    const std::wstring longValue = std::wstring(5000, L'x') + L"!";
    ASSERT_EQ(SetProperty(session_.get(), L"LONGVALUE", longValue.c_str()), 0u);
    EXPECT_EQ(GetPropertyString(session_.get(), L"LONGVALUE", value), 0u);
    EXPECT_EQ(value, longValue);
    SetProperty(session_.get(), L"LONGVALUE", L"short");
    EXPECT_EQ(GetPropertyString(session_.get(), L"LONGVALUE", value), 0u);
    EXPECT_EQ(value, L"short");
    EXPECT_NE(GetPropertyString(0, L"ProductName", value), 0u);
    EXPECT_EQ(GetPropertyString(session_.get(), L"NEVER_SET", value), 0u);
    SetProperty(session_.get(), L"LONGVALUE", L"");
    EXPECT_EQ(GetPropertyString(session_.get(), L"LONGVALUE", value), 0u);
    EXPECT_EQ(value, L"short");
}

// Type (high byte) and fields 1 and up of each record as the package's Error
// table and log see them; 1923 has no row in this package's Error table.
TEST_F(SessionTest, ReportsAndTheDriverLogPostTheirFieldsInOrder) {
    ReportInfo(session_.get(), L"Copied [1] files", 7);
    ReportInfo(session_.get(), L"Nothing to copy", 7);
    ReportActionError(session_.get(), L"KSInstall", L"drv.inf", 87);
    ReportServiceError(session_.get(), 1073, L"nvdrv");
    EXPECT_NE(messages_.all().at(0).text.find(L"Copied 7 files"), std::wstring::npos);
    EXPECT_EQ(Posted(), (std::vector<Fields>{{L"4", L"7"},
                                             {L"4", L""},
                                             {L"1", L"666", L"KSInstall", L"drv.inf", L"87"},
                                             {L"1", L"1923", L"nvdrv", L"1073"}}));

    SessionLog log(session_.get());
    log.Info(L"Driver staged");
    EXPECT_EQ(messages_.all().at(0).text, L"KSInstall64:info: Driver staged");
    SetLastError(ERROR_ACCESS_DENIED);
    log.Error(L"Can't open the INF");
    EXPECT_NE(messages_.all().at(1).text.find(L"KSInstall64:error #5:Can't open the INF"),
              std::wstring::npos);
    LogInfo(log, L"%ls holds %d", L"drv.inf", 3);
    log.Trace(L"Delete", FILEPATHS_W{L"C:\\old.sys", nullptr, 0, 0});
    SetLastError(ERROR_FILE_NOT_FOUND);
    LogError(log, L"Copy of %ls failed after %d tries", L"x.sys", 4);
    EXPECT_EQ(Posted(), (std::vector<Fields>{{L"4", L"Driver staged", L""},
                                             {L"4", L"5", L"Can't open the INF", L""},
                                             {L"1", L"25002"},
                                             {L"4", L"drv.inf holds 3", L""},
                                             {L"4", L"Delete:'' => 'C:\\old.sys' [0:0]", L""},
                                             {L"4", L"2", L"Copy of x.sys failed after 4 tries", L""},
                                             {L"1", L"25002"}}));
}

// Written as REG_SZ "Force", the one type the read takes.
TEST_F(SessionTest, InstallLogNeedRebootLeavesTheMarker) {
    SessionLog(session_.get()).NeedReboot();
    EXPECT_EQ(harness::ReadRegistryString(HKEY_LOCAL_MACHINE, kMarkerPath, L"Reboot"),
              std::optional<std::wstring>(L"Force"));
    EXPECT_EQ(Posted(), (std::vector<Fields>{{L"4", L"Set reboot action.", L""}}));
    harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMarkerPath);
}

// Each line is flushed at once: another reader sees it while the file is open.
TEST(InstallLogFile, WritesFlushedLinesInTextMode) {
    const std::wstring path = harness::MakeTempFolder(L"log") + L"install.log";
    FileLog log(_wfopen(path.c_str(), L"wt"));
    log.Info(L"Driver staged");
    EXPECT_EQ(harness::ReadTextFile(path), "KSInstall64:info: Driver staged\r\n");
    SetLastError(0xE0000102);
    LogError(log, L"No line %d in %ls", 12, L"drv.inf");
    log.NeedReboot();
    log.Close();
    log.Info(L"after close");
    EXPECT_EQ(harness::ReadTextFile(path), "KSInstall64:info: Driver staged\r\n"
                                           "KSInstall64:error 0xE0000102: No line 12 in drv.inf.\r\n"
                                           "KSInstall64:info: Need reboot.\r\n");
}

// Without an NVDriverPackages table and a reboot marker (a fresh prefix has
// none) the driver actions do nothing.
TEST_F(SessionTest, DriverActionsWithNothingToDoPostNothing) {
    session_.session().Cost();
    messages_.Clear();
    ASSERT_FALSE(harness::RegistryKeyExists(HKEY_LOCAL_MACHINE, kMarkerPath));
    for (const char* action : {"KSProcess", "KSCheckDeleteFlag", "KSCleanup"}) {
        EXPECT_EQ(session_.Run(action), 0u) << action;
    }
    EXPECT_TRUE(messages_.all().empty());
    for (const wchar_t* property : {L"KSInstall", L"KSRollback", L"KSUninstall", L"KSInstall64",
                                    L"KSRollback64", L"KSUninstall64", L"DELETEFLAG"}) {
        EXPECT_EQ(session_.session().Property(property), L"") << property;
    }
    EXPECT_FALSE(MsiGetMode(session_.get(), MSIRUNMODE_REBOOTATEND));
}

} // namespace
} // namespace setuputils
