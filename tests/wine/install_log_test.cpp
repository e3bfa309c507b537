// The driver log: records posted to a real installation, the reboot marker in
// the registry, and the text file of the command-line entry points.
#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <windows.h>
#include <sddl.h>

#include "frame/handles.h"
#include "frame/install_log.h"
#include "frame/product_codes.h"
#include "frame/session.h"
#include "machine.h"
#include "action_session.h"

namespace setuputils {
namespace {

using Fields = std::vector<std::wstring>;

const std::wstring kMarkerPath = std::wstring(kUninstallKeyPath) + kDriverInstallerProductCode;

class InstallLogTest : public ::testing::Test {
protected:
    // Field 1 of every information message, in order.
    Fields InfoLines() const {
        Fields lines;
        for (const auto& message : messages_.OfType(kMessageInfo)) {
            lines.push_back(message.fields.size() > 1 ? message.fields[1] : L"<no field 1>");
        }
        return lines;
    }

    harness::ActionSession session_;
    harness::MessageRecorder& messages_ = session_.messages();
    SessionLog log_{session_.get()};
};

TEST_F(InstallLogTest, SessionInfoAndErrorRecords) {
    log_.Info(L"Driver staged");
    ASSERT_EQ(messages_.all().size(), 1u);
    const auto& info = messages_.all()[0];
    EXPECT_EQ(info.type, static_cast<UINT>(kMessageInfo));
    EXPECT_EQ(info.fields, (Fields{L"KSInstall64:info: [1]", L"Driver staged", L""}));
    EXPECT_EQ(info.text, L"KSInstall64:info: Driver staged");
    messages_.Clear();

    SetLastError(ERROR_ACCESS_DENIED);
    log_.Error(L"Can't open the INF");
    ASSERT_EQ(messages_.all().size(), 2u);
    const auto& line = messages_.all()[0];
    EXPECT_EQ(line.type, static_cast<UINT>(kMessageInfo));
    ASSERT_EQ(line.fieldCount(), 3u);
    // Field 1 is an integer, so the installer puts its information header in front of field 0.
    EXPECT_NE(line.fields[0].find(L"KSInstall64:error #[1]:[2]"), std::wstring::npos) << line.fields[0];
    EXPECT_EQ(line.fields[1], L"5");
    EXPECT_EQ(line.fields[2], L"Can't open the INF");
    EXPECT_NE(line.text.find(L"KSInstall64:error #5:Can't open the INF"), std::wstring::npos) << line.text;
    const auto& error = messages_.all()[1];
    EXPECT_EQ(error.type, static_cast<UINT>(kMessageError));
    ASSERT_EQ(error.fieldCount(), 1u);
    EXPECT_EQ(error.fields[1], L"25002");
}

// The formatting itself is the native tests', the copy trace the queue callback test's.
TEST_F(InstallLogTest, FormattedLinesAndFileQueueTrace) {
    LogInfo(log_, L"%ls holds %d", L"drv.inf", 3);
    FILEPATHS_W deleted{L"C:\\old.sys", nullptr, 0, 0};
    log_.Trace(L"Delete", deleted);
    EXPECT_EQ(InfoLines(), (Fields{L"drv.inf holds 3", L"Delete:'' => 'C:\\old.sys' [0:0]"}));
    messages_.Clear();

    SetLastError(ERROR_FILE_NOT_FOUND);
    LogError(log_, L"Copy of %ls failed after %d tries", L"x.sys", 4);
    ASSERT_EQ(messages_.all().size(), 2u);
    EXPECT_EQ(messages_.all()[0].fields[1], L"2");
    EXPECT_EQ(messages_.all()[0].fields[2], L"Copy of x.sys failed after 4 tries");
}

// The test created the marker key, and its owner may always change the DACL back.
struct MarkerRemover {
    ~MarkerRemover() {
        harness::SetKeyDacl(kMarkerPath, L"D:(A;;KA;;;WD)");
        harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, kMarkerPath);
    }
};

TEST_F(InstallLogTest, NeedRebootLeavesTheMarkerOrReportsWhyNot) {
    ASSERT_FALSE(harness::RegistryKeyExists(HKEY_LOCAL_MACHINE, kMarkerPath));
    {
        MarkerRemover remover;
        log_.NeedReboot();
        // A REG_SZ value: the read takes no other type.
        EXPECT_EQ(harness::ReadRegistryString(HKEY_LOCAL_MACHINE, kMarkerPath, L"Reboot"),
                  std::optional<std::wstring>(L"Force"));
        EXPECT_EQ(InfoLines(), (Fields{L"Set reboot action."}));
        EXPECT_EQ(messages_.all().size(), 1u);
    }
    messages_.Clear();

    // A marker key that may be read but not written.
    MarkerRemover remover;
    harness::WriteRegistryString(HKEY_LOCAL_MACHINE, kMarkerPath, L"Keep", L"1");
    ASSERT_EQ(harness::SetKeyDacl(kMarkerPath, L"D:P(A;;KR;;;WD)"), ERROR_SUCCESS);
    log_.NeedReboot();
    EXPECT_FALSE(harness::ReadRegistryString(HKEY_LOCAL_MACHINE, kMarkerPath, L"Reboot").has_value());
    EXPECT_EQ(InfoLines(), (Fields{L"Set reboot action.", L"5"}));
    ASSERT_EQ(messages_.all().size(), 3u);
    EXPECT_EQ(messages_.all()[1].fields[2], L"Can't save reboot needed.");
    EXPECT_EQ(messages_.all()[2].type, static_cast<UINT>(kMessageError));
    EXPECT_EQ(messages_.all()[2].fields[1], L"25002");
}

TEST(InstallLogFile, WritesFlushedLinesInTextMode) {
    const std::wstring path = harness::MakeTempFolder(L"log") + L"install.log";
    std::FILE* file = _wfopen(path.c_str(), L"wt");
    ASSERT_NE(file, nullptr);
    FileLog log(file);
    log.Info(L"Driver staged");
    // Flushed at once: another reader sees the line while the file is open.
    EXPECT_EQ(harness::ReadTextFile(path), "KSInstall64:info: Driver staged\r\n");
    SetLastError(0xE0000102);
    LogError(log, L"No line %d in %ls", 12, L"drv.inf");
    log.NeedReboot();
    const std::string expected = "KSInstall64:info: Driver staged\r\n"
                                 "KSInstall64:error 0xE0000102: No line 12 in drv.inf.\r\n"
                                 "KSInstall64:info: Need reboot.\r\n";
    EXPECT_EQ(harness::ReadTextFile(path), expected);
    log.Close();
    log.Info(L"after close");
    EXPECT_EQ(harness::ReadTextFile(path), expected);

    FileLog none(nullptr);
    none.Info(L"nowhere");
    SetLastError(ERROR_ACCESS_DENIED);
    none.Error(L"nowhere");
    none.NeedReboot();
    LogInfo(none, L"%ls", L"nowhere");
}

} // namespace
} // namespace setuputils
