// Previous-version removal: the package's Binary table holds the response file for a stand-in of the
// old setup program (test_old_uninstaller.cpp). Every test restores the pending renames.
#include "driver_package_fixture.h"

namespace harness {
namespace {

using namespace std::string_literals;
constexpr UINT kFailure = ERROR_INSTALL_FAILURE, kNteFail = 0x80090020;
constexpr UINT kAnyCode = 1; // whatever nonzero code the action returns
const std::string kCsp = "UninstallCSP2", kTls = "UninstallTLS2";

// Error 666 as the actions post it.
Texts Error(const wchar_t* action, const wchar_t* text, UINT code) {
    return {L"666", action, text, std::to_wstring(static_cast<int>(code))};
}

// "uninstall.csp" or "uninstall.tls" with `extension` in the temporary folder.
std::wstring TempFile(const std::string& action, const wchar_t* extension) {
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    return folder + std::wstring(action == kCsp ? L"uninstall.csp" : L"uninstall.tls") + extension;
}

class PreviousVersionTest : public ::testing::Test {
protected:
    PreviousVersionTest() { SetRenames(std::nullopt); }
    ~PreviousVersionTest() override {
        SetRenames(renamesBefore_);
        DeleteTempFiles();
    }
    static void SetRenames(const std::optional<RegistryData>& data) {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, data);
    }
    // A deleted file goes once no handle holds it any more: callers wait for that state.
    static bool TempFilesGone(const std::string& action) {
        return !Exists(TempFile(action, L".iss")) && !Exists(TempFile(action, L".log"));
    }
    static void DeleteTempFiles() {
        for (const std::string& action : {kCsp, kTls}) {
            DeleteFileW(TempFile(action, L".iss").c_str());
            DeleteFileW(TempFile(action, L".log").c_str());
        }
        WaitUntil([] { return TempFilesGone(kCsp) && TempFilesGone(kTls); });
    }

    // Runs `action` with `response` as its response file (if any) and `uninstallString` (by default
    // the stand-in) as the old product's uninstall command.
    UINT Run(const std::string& action, const std::optional<std::string>& response,
             const std::optional<std::wstring>& uninstallString = std::nullopt) {
        TestPackage package;
        package.AddStandardTables();
        if (response) {
            const std::wstring file = MakeTempFolder(L"iss") + L"response.iss";
            WriteTextFile(file, *response);
            package.AddBinary(std::filesystem::path(TempFile(action, L".iss")).filename().wstring(), file);
        }
        if (const std::wstring command = uninstallString.value_or(uninstaller_); !command.empty()) {
            package.SetProperty(action == kCsp ? L"UNINSTALLSTRINGCSP2" : L"UNINSTALLSTRINGTLS2", command);
        }
        package.Commit();
        TestSession session(package);
        messages_.Clear();
        return library_.Action(action.c_str())(session.get());
    }

    const std::optional<RegistryData> renamesBefore_ = PendingRenames();
    const std::wstring uninstaller_ = L"\"" + TestProgramPath(L"test_old_uninstaller.exe") + L"\" ";
    SetupUtilsLibrary library_;
    MessageRecorder messages_;
};

// A failed run keeps its temporary files; a log without a result code fails with the last error (never
// 0). Without a response file or an uninstall string nothing is extracted.
TEST_F(PreviousVersionTest, FailuresAreReportedWithEachActionsCode) {
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\" ";
    const Texts resultCode = Error(L"GetResultCode", L"ResultCode = [1]", static_cast<UINT>(-3));
    const Texts notZero = Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kNteFail);
    const Texts noCode = Error(L"GetResultCode", L"sscanf() fail. ResultCode is unknown", kAnyCode);
    const Texts notZeroAny = Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kAnyCode);
    const Texts noProcess = Error(L"RunUninstall", L"CreateProcess() fail: ", ERROR_FILE_NOT_FOUND);
    const Texts notRun = Error(L"Uninstall2", L"RunUninstall() fail", kFailure);
    const Texts noData = Error(L"Uninstall2", L"MsiRecordDataSize failed", kNteFail);
    const Texts noString = Error(L"Uninstall2", L"Uninstall string is empty", kFailure);
    // The errors before the action's own, which closes the list with its status.
    const struct {
        std::string action;
        std::optional<std::string> response;
        std::optional<std::wstring> uninstallString;
        UINT status;
        std::vector<Texts> errors;
    } cases[] = {{kCsp, "result=-3\r\nresult=0\r\n", {}, kFailure, {resultCode, notZero}},
                 {kTls, "result=-3\r\n", {}, kNteFail, {resultCode, notZero}},
                 {kTls, "exit=0\r\n", {}, kAnyCode, {noCode, notZeroAny}},
                 {kCsp, "result=0\r\n", absent, kFailure, {noProcess, notRun}},
                 {kCsp, {}, {}, kFailure, {noData}},
                 {kTls, "", {}, kNteFail, {noData}},
                 {kTls, "result=0", L"", kFailure, {noString}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.action + " " + c.response.value_or("(none)"));
        const UINT status = Run(c.action, c.response, c.uninstallString);
        EXPECT_TRUE(c.status == kAnyCode ? status != 0 : status == c.status) << status;
        std::vector<Texts> errors = c.errors;
        errors.push_back(Error(c.action == kCsp ? L"UninstallCSP2" : L"UninstallTLS2",
                               c.action == kCsp ? L"Uninstall2 fail" : L"Uninstall2 FAIL", c.status));
        for (auto& error : errors) {
            if (error.back() == std::to_wstring(kAnyCode)) {
                error.back() = std::to_wstring(static_cast<int>(status));
            }
        }
        EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), errors);
        EXPECT_EQ(Exists(TempFile(c.action, L".log")), c.errors.size() == 2) << "kept when extracted";
        DeleteTempFiles();
    }
}

// A result code of 0 succeeds whatever the exit code (of two result codes the first counts) and the
// temporary files go. Saved renames (a deletion and a rename) come back before those the run
// queued (Wine's own data, taken from the run with nothing saved).
TEST_F(PreviousVersionTest, SucceedsOnResultCodeZeroAndSavedRenamesComeBackFirst) {
    const std::wstring saved = L"\\??\\C:\\old\\a.dll\0\0\\??\\C:\\old\\b.tmp\0\\??\\C:\\old\\b.dll\0\0"s;
    const std::string plain = "exit=5\r\nresult=0\r\nresult=-3\r\n",
                      queuing =
                          "rename=C:\\gone\\c.dll|\r\nrename=C:\\gone\\d.tmp|C:\\gone\\d.dll\r\nresult=0\r\n";
    std::optional<RegistryData> queued;
    for (const bool savedBefore : {false, true}) {
        for (const std::string& text : {plain, queuing}) {
            SCOPED_TRACE(text);
            RegistryData expectedRenames =
                MakeRegistryData(REG_MULTI_SZ, saved.data(), saved.size() * sizeof(wchar_t));
            SetRenames(savedBefore ? std::optional(expectedRenames) : std::nullopt);
            EXPECT_EQ(Run(kCsp, text), 0u);
            EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
            EXPECT_TRUE(WaitUntil([] { return TempFilesGone(kCsp); }));
            if (!savedBefore) {
                EXPECT_EQ(PendingRenames().has_value(), text == queuing)
                    << "none before, none queued: nothing written";
                queued = PendingRenames();
                continue;
            }
            // The saved operations without their final terminator, then those queued (or one terminator).
            expectedRenames.bytes.resize(expectedRenames.bytes.size() - sizeof(wchar_t));
            const auto tail = text == queuing ? queued.value_or(RegistryData{}).bytes : std::vector<BYTE>(2);
            expectedRenames.bytes.insert(expectedRenames.bytes.end(), tail.begin(), tail.end());
            EXPECT_EQ(PendingRenames(), expectedRenames);
        }
    }
}

} // namespace
} // namespace harness
