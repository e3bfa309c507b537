// Previous-version removal against Wine: a real package whose Binary table
// holds the response files, and a stand-in for the old setup program that does
// what its response file says (test_old_uninstaller.cpp). Wine carries out the
// pending renames at the next start of its server, so every test leaves the
// value as it found it.
#include <gtest/gtest.h>

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using namespace std::string_literals;
using Errors = std::vector<std::vector<std::wstring>>;

const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
const std::wstring kPendingRenames = L"PendingFileRenameOperations";
constexpr UINT kFailure = ERROR_INSTALL_FAILURE;
constexpr UINT kNteFail = 0x80090020;
constexpr UINT kAnyCode = 1; // whatever nonzero code the action returns

// Error 666 as the actions post it.
std::vector<std::wstring> Error(const wchar_t* action, const wchar_t* text, UINT code) {
    return {L"666", action, text, std::to_wstring(static_cast<int>(code))};
}

// "uninstall.csp" or "uninstall.tls": the action's Binary row and temporary files.
std::wstring BaseName(const std::string& action) {
    return action == "UninstallCSP2" ? L"uninstall.csp" : L"uninstall.tls";
}

std::wstring TempFile(const std::string& action, const wchar_t* extension) {
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    return folder + BaseName(action) + extension;
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::optional<RegistryData> PendingRenames() {
    return ReadRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
}

void SetPendingRenames(const std::optional<RegistryData>& data) {
    RestoreRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, data);
}

class PreviousVersionTest : public ::testing::Test {
protected:
    PreviousVersionTest() { SetPendingRenames(std::nullopt); }
    ~PreviousVersionTest() override {
        SetPendingRenames(renamesBefore_);
        DeleteTempFiles();
    }

    static void DeleteTempFiles() {
        for (const char* action : {"UninstallCSP2", "UninstallTLS2"}) {
            DeleteFileW(TempFile(action, L".iss").c_str());
            DeleteFileW(TempFile(action, L".log").c_str());
        }
    }

    // Runs `action` on a package whose Binary table holds `response` as its
    // response file (no row without one), with `uninstallString` (by default
    // the stand-in) as the old product's uninstall command.
    UINT Run(const std::string& action, const std::optional<std::string>& response,
             const std::optional<std::wstring>& uninstallString = std::nullopt) {
        package_ = std::make_unique<TestPackage>();
        package_->AddStandardTables();
        if (response) {
            const std::wstring file = MakeTempFolder(L"iss") + L"response.iss";
            WriteTextFile(file, *response);
            package_->AddBinary(BaseName(action) + L".iss", file);
        }
        if (const std::wstring command = uninstallString.value_or(uninstaller_); !command.empty()) {
            package_->SetProperty(action == "UninstallCSP2" ? L"UNINSTALLSTRINGCSP2" : L"UNINSTALLSTRINGTLS2",
                                  command);
        }
        package_->Commit();
        TestSession session(*package_);
        messages_.Clear();
        return library_.Action(action.c_str())(session.get());
    }

    const std::optional<RegistryData> renamesBefore_ = PendingRenames();
    const std::wstring uninstaller_ = L"\"" + TestProgramPath(L"test_old_uninstaller.exe") + L"\" ";
    SetupUtilsLibrary library_;
    std::unique_ptr<TestPackage> package_;
    MessageRecorder messages_;
};

// The exit code is only logged, and of two result codes the first counts.
TEST_F(PreviousVersionTest, ResultCodeZeroSucceedsWhateverTheExitCodeAndTheTempFilesGo) {
    EXPECT_EQ(Run("UninstallCSP2", "exit=5\r\nresult=0\r\nresult=-3\r\n"), 0u);

    const std::wstring response = TempFile("UninstallCSP2", L".iss"),
                       log = TempFile("UninstallCSP2", L".log");
    const std::vector<std::wstring> expected = {L"Uninstall2() Started",
                                                L"Read uninstall.iss from database",
                                                L"TempLog: " + log,
                                                L"TempISS: " + response,
                                                L"There is no reg key, it's ok",
                                                uninstaller_ + L"-s -f1\"" + response + L"\" -f2\"" + log +
                                                    L"\"",
                                                L"ExitCode: 5",
                                                L"ResultCode = 0",
                                                L"Deleting temp files: TempISS and TempLog"};
    // Wine puts a header ("Info 5. ") in front of the texts that carry a number.
    const std::vector<std::wstring> texts = messages_.InfoTexts();
    ASSERT_EQ(texts.size(), expected.size());
    for (std::size_t i = 0; i < texts.size(); ++i) {
        EXPECT_TRUE(texts[i].ends_with(expected[i])) << texts[i] << L" / " << expected[i];
    }
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_FALSE(Exists(response) || Exists(log));
    EXPECT_EQ(PendingRenames(), std::nullopt) << "none before, none queued: nothing written";
}

// A failed run keeps the temporary files for diagnosis: the response file as
// the package holds it. A log without a result code fails with the thread's
// last error, or with NTE_FAIL where that is 0: never with 0. Without a
// response file or an uninstall string nothing is extracted.
TEST_F(PreviousVersionTest, FailuresAreReportedWithEachActionsCode) {
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\" ";
    const struct {
        std::string action;
        std::optional<std::string> response;
        std::optional<std::wstring> uninstallString;
        UINT status;
        Errors errors;
    } cases[] = {
        {"UninstallCSP2",
         "result=-3\r\nresult=0\r\n",
         std::nullopt,
         kFailure,
         {Error(L"GetResultCode", L"ResultCode = [1]", static_cast<UINT>(-3)),
          Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kNteFail),
          Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallTLS2",
         "result=-3\r\n",
         std::nullopt,
         kNteFail,
         {Error(L"GetResultCode", L"ResultCode = [1]", static_cast<UINT>(-3)),
          Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kNteFail),
          Error(L"UninstallTLS2", L"Uninstall2 FAIL", kNteFail)}},
        {"UninstallTLS2",
         "exit=0\r\n",
         std::nullopt,
         kAnyCode,
         {Error(L"GetResultCode", L"sscanf() fail. ResultCode is unknown", kAnyCode),
          Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kAnyCode),
          Error(L"UninstallTLS2", L"Uninstall2 FAIL", kAnyCode)}},
        {"UninstallCSP2",
         "result=0\r\n",
         absent,
         kFailure,
         {Error(L"RunUninstall", L"CreateProcess() fail: ", ERROR_FILE_NOT_FOUND),
          Error(L"Uninstall2", L"RunUninstall() fail", kFailure),
          Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallCSP2",
         std::nullopt,
         std::nullopt,
         kFailure,
         {Error(L"Uninstall2", L"MsiRecordDataSize failed", kNteFail),
          Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallTLS2",
         "",
         std::nullopt,
         kNteFail,
         {Error(L"Uninstall2", L"MsiRecordDataSize failed", kNteFail),
          Error(L"UninstallTLS2", L"Uninstall2 FAIL", kNteFail)}},
        {"UninstallCSP2",
         "result=0",
         L"",
         kFailure,
         {Error(L"Uninstall2", L"Uninstall string is empty", kFailure),
          Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallTLS2",
         "result=0",
         L"",
         kFailure,
         {Error(L"Uninstall2", L"Uninstall string is empty", kFailure),
          Error(L"UninstallTLS2", L"Uninstall2 FAIL", kFailure)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.action + " " + c.response.value_or("(none)"));
        const UINT status = Run(c.action, c.response, c.uninstallString);
        Errors errors = c.errors;
        for (auto& error : errors) {
            if (error.back() == std::to_wstring(kAnyCode)) {
                error.back() = std::to_wstring(static_cast<int>(status));
            }
        }
        EXPECT_TRUE(c.status == kAnyCode ? status != 0 : status == c.status) << status;
        EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), errors);
        const bool extracted = c.errors.size() == 3;
        EXPECT_EQ(Exists(TempFile(c.action, L".log")), extracted);
        EXPECT_EQ(Exists(TempFile(c.action, L".iss")), extracted);
        if (extracted) {
            EXPECT_EQ(ReadTextFile(TempFile(c.action, L".iss")), *c.response);
        }
        DeleteTempFiles();
    }
}

// What the stand-in queues with MoveFileExW is Wine's own data: it is taken
// from the run that had nothing saved, and must follow the saved operations
// (a deletion and a rename) in the run that had.
TEST_F(PreviousVersionTest, PendingRenamesSavedBeforeTheRunComeBackFirst) {
    const std::wstring saved = L"\\??\\C:\\old\\a.dll\0\0\\??\\C:\\old\\b.tmp\0\\??\\C:\\old\\b.dll\0\0"s;
    const std::string queuing =
        "rename=C:\\gone\\c.dll|\r\nrename=C:\\gone\\d.tmp|C:\\gone\\d.dll\r\nresult=0\r\n";
    std::optional<RegistryData> queued;
    for (const bool savedBefore : {false, true}) {
        for (const std::string& response : {"result=0\r\n"s, queuing}) {
            SCOPED_TRACE(response);
            SetPendingRenames(savedBefore ? std::optional(MakeRegistryData(REG_MULTI_SZ, saved.data(),
                                                                           saved.size() * sizeof(wchar_t)))
                                          : std::nullopt);
            EXPECT_EQ(Run("UninstallCSP2", response), 0u);
            if (!savedBefore) {
                EXPECT_EQ(PendingRenames().has_value(), response == queuing);
                queued = PendingRenames();
                continue;
            }
            // The saved operations without their final terminator, then those queued (or one terminator).
            RegistryData expected =
                MakeRegistryData(REG_MULTI_SZ, saved.data(), (saved.size() - 1) * sizeof(wchar_t));
            const std::vector<BYTE> tail =
                response == queuing ? queued.value_or(RegistryData{}).bytes : std::vector<BYTE>(2);
            expected.bytes.insert(expected.bytes.end(), tail.begin(), tail.end());
            EXPECT_EQ(PendingRenames(), expected);
            EXPECT_TRUE(messages_.InfoTexts().back().ends_with(
                L"Reverting reg value \"PendingFileRenameOperations\" ok"));
        }
    }
}

} // namespace
} // namespace harness
