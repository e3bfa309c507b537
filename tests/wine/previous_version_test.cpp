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

#include "frame/handles.h"
#include "legacy/previous_version.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using namespace std::string_literals;

const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager";
const std::wstring kPendingRenames = L"PendingFileRenameOperations";
const std::string kRecords = "Software\\SetupUtilsTests\\OldUninstaller";
constexpr UINT kFailure = ERROR_INSTALL_FAILURE;
constexpr UINT kNteFail = 0x80090020;

using Errors = std::vector<std::vector<std::wstring>>;

// Error 666 as the actions post it.
std::vector<std::wstring> Error(const wchar_t* action, const wchar_t* text, UINT code) {
    return {L"666", action, text, std::to_wstring(static_cast<int>(code))};
}

std::wstring TempFile(const std::wstring& component, const wchar_t* extension) {
    wchar_t folder[MAX_PATH] = L"";
    GetTempPathW(MAX_PATH, folder);
    return folder + (L"uninstall." + component) + extension;
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

RegistryData MultiString(std::wstring_view data) {
    const auto* bytes = reinterpret_cast<const BYTE*>(data.data());
    return {REG_MULTI_SZ, std::vector<BYTE>(bytes, bytes + data.size() * sizeof(wchar_t))};
}

// "csp" or "tls": names the action's Binary row and temporary files.
std::wstring ComponentOf(const std::string& action) {
    return action == "UninstallCSP2" ? L"csp" : L"tls";
}

std::wstring UninstallStringProperty(const std::string& action) {
    return action == "UninstallCSP2" ? L"UNINSTALLSTRINGCSP2" : L"UNINSTALLSTRINGTLS2";
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
        DeleteRegistryTree(HKEY_CURRENT_USER, std::wstring(kRecords.begin(), kRecords.end()));
        DeleteTempFiles();
    }

    static void DeleteTempFiles() {
        for (const wchar_t* component : {L"csp", L"tls"}) {
            DeleteFileW(TempFile(component, L".iss").c_str());
            DeleteFileW(TempFile(component, L".log").c_str());
        }
    }

    // A session on a package whose Binary table holds `response` as the
    // response file of `action` (no row without one); its uninstall string
    // names the stand-in.
    void Open(const std::string& action, const std::optional<std::string>& response) {
        session_.reset();
        package_ = std::make_unique<TestPackage>();
        package_->AddStandardTables();
        if (response) {
            const std::wstring file = MakeTempFolder(L"iss") + L"response.iss";
            WriteTextFile(file, *response);
            package_->AddBinary(L"uninstall." + ComponentOf(action) + L".iss", file);
        }
        package_->Commit();
        session_ = std::make_unique<TestSession>(*package_);
        session_->SetProperty(UninstallStringProperty(action), uninstaller_);
        messages_.Clear();
    }

    UINT Run(const char* action) { return library_.Action(action)(session_->get()); }

    // Wine puts a header ("Info 5. ") in front of the texts that carry a number.
    void ExpectInfo(const std::vector<std::wstring>& expected) {
        const std::vector<std::wstring> texts = messages_.InfoTexts();
        ASSERT_EQ(texts.size(), expected.size()) << (texts.empty() ? L"" : texts.back());
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_TRUE(texts[i].ends_with(expected[i])) << texts[i] << L" / " << expected[i];
        }
    }

    const std::optional<RegistryData> renamesBefore_ = PendingRenames();
    const std::wstring uninstaller_ = L"\"" + TestProgramPath(L"test_old_uninstaller.exe") + L"\" ";
    SetupUtilsLibrary library_;
    std::unique_ptr<TestPackage> package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

// The exit code is only logged, and of two result codes the first counts.
TEST_F(PreviousVersionTest, ResultCodeZeroSucceedsWhateverTheExitCodeAndTheTempFilesGo) {
    Open("UninstallCSP2", "record=" + kRecords + "\r\nexit=5\r\nresult=0\r\nresult=-3\r\n");
    EXPECT_EQ(Run("UninstallCSP2"), 0u);

    const std::wstring response = TempFile(L"csp", L".iss");
    const std::wstring log = TempFile(L"csp", L".log");
    const std::wstring line = uninstaller_ + L"-s -f1\"" + response + L"\" -f2\"" + log + L"\"";
    EXPECT_EQ(
        ReadRegistryString(HKEY_CURRENT_USER, std::wstring(kRecords.begin(), kRecords.end()), L"CommandLine"),
        line);
    ExpectInfo({L"Uninstall2() Started", L"Read uninstall.iss from database", L"TempLog: " + log,
                L"TempISS: " + response, L"There is no reg key, it's ok", line, L"ExitCode: 5",
                L"ResultCode = 0", L"Deleting temp files: TempISS and TempLog"});
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_FALSE(Exists(response));
    EXPECT_FALSE(Exists(log));
    EXPECT_EQ(PendingRenames(), std::nullopt) << "none before, none queued: nothing written";
}

// The temporary files stay for diagnosis: the response file as the package
// holds it. A log without a result code fails with the thread's last error,
// or with NTE_FAIL where that is 0 (as it is here): never with 0.
TEST_F(PreviousVersionTest, FailedRunKeepsTheTempFilesAndFailsWithEachActionsCode) {
    constexpr UINT kAnyCode = 0; // whatever nonzero code the action returns
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\" ";
    const struct {
        std::string action;
        std::string response;
        std::wstring uninstallString;
        UINT status;
        Errors errors;
    } cases[] = {
        {"UninstallCSP2", "result=-3\r\nresult=0\r\n", uninstaller_, kFailure,
         Errors{Error(L"GetResultCode", L"ResultCode = [1]", static_cast<UINT>(-3)),
                Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kNteFail),
                Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallTLS2", "result=-3\r\n", uninstaller_, kNteFail,
         Errors{Error(L"GetResultCode", L"ResultCode = [1]", static_cast<UINT>(-3)),
                Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kNteFail),
                Error(L"UninstallTLS2", L"Uninstall2 FAIL", kNteFail)}},
        {"UninstallTLS2", "exit=0\r\n", uninstaller_, kAnyCode,
         Errors{Error(L"GetResultCode", L"sscanf() fail. ResultCode is unknown", kAnyCode),
                Error(L"Uninstall2", L"ResultCode != ERROR_SUCCESS", kAnyCode),
                Error(L"UninstallTLS2", L"Uninstall2 FAIL", kAnyCode)}},
        {"UninstallCSP2", "result=0\r\n", absent, kFailure,
         Errors{Error(L"RunUninstall", L"CreateProcess() fail: ", ERROR_FILE_NOT_FOUND),
                Error(L"Uninstall2", L"RunUninstall() fail", kFailure),
                Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.response);
        Open(c.action, c.response);
        session_->SetProperty(UninstallStringProperty(c.action), c.uninstallString);
        const UINT status = Run(c.action.c_str());
        Errors errors = c.errors;
        if (c.status == kAnyCode) {
            EXPECT_NE(status, 0u);
            for (auto& error : errors) {
                error.back() = std::to_wstring(static_cast<int>(status));
            }
        } else {
            EXPECT_EQ(status, c.status);
        }
        EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), errors);
        EXPECT_EQ(ReadTextFile(TempFile(ComponentOf(c.action), L".iss")), c.response);
        EXPECT_TRUE(Exists(TempFile(ComponentOf(c.action), L".log")));
        DeleteTempFiles();
    }
}

TEST_F(PreviousVersionTest, MissingResponseFileOrUninstallStringFailsBeforeAnythingIsExtracted) {
    const struct {
        std::string action;
        std::optional<std::string> response;
        std::wstring uninstallString;
        UINT status;
        Errors errors;
    } cases[] = {
        {"UninstallCSP2", std::nullopt, uninstaller_, kFailure,
         Errors{Error(L"Uninstall2", L"MsiRecordDataSize failed", kNteFail),
                Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallTLS2", "", uninstaller_, kNteFail,
         Errors{Error(L"Uninstall2", L"MsiRecordDataSize failed", kNteFail),
                Error(L"UninstallTLS2", L"Uninstall2 FAIL", kNteFail)}},
        {"UninstallCSP2", "result=0", L"", kFailure,
         Errors{Error(L"Uninstall2", L"Uninstall string is empty", kFailure),
                Error(L"UninstallCSP2", L"Uninstall2 fail", kFailure)}},
        {"UninstallTLS2", "result=0", L"", kFailure,
         Errors{Error(L"Uninstall2", L"Uninstall string is empty", kFailure),
                Error(L"UninstallTLS2", L"Uninstall2 FAIL", kFailure)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.action);
        SCOPED_TRACE(c.uninstallString);
        Open(c.action, c.response);
        session_->SetProperty(UninstallStringProperty(c.action), c.uninstallString);
        EXPECT_EQ(Run(c.action.c_str()), c.status);
        EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), c.errors);
        ExpectInfo({L"Uninstall2() Started"});
        EXPECT_FALSE(Exists(TempFile(ComponentOf(c.action), L".iss")));
        EXPECT_FALSE(Exists(TempFile(ComponentOf(c.action), L".log")));
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
    const struct {
        bool savedBefore;
        std::string response;
    } cases[] = {{false, "result=0\r\n"}, {false, queuing}, {true, queuing}, {true, "result=0\r\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.response);
        SetPendingRenames(c.savedBefore ? std::optional(MultiString(saved)) : std::nullopt);
        Open("UninstallCSP2", c.response);
        EXPECT_EQ(Run("UninstallCSP2"), 0u);
        const bool queues = c.response == queuing;
        if (!c.savedBefore) {
            EXPECT_EQ(PendingRenames().has_value(), queues);
            queued = PendingRenames();
        } else {
            RegistryData expected = MultiString(std::wstring_view(saved).substr(0, saved.size() - 1));
            if (queues) {
                ASSERT_TRUE(queued);
                expected.bytes.insert(expected.bytes.end(), queued->bytes.begin(), queued->bytes.end());
            } else {
                expected.bytes.insert(expected.bytes.end(), sizeof(wchar_t), 0);
            }
            EXPECT_EQ(PendingRenames(), expected);
            EXPECT_TRUE(messages_.InfoTexts().back().ends_with(
                L"Reverting reg value \"PendingFileRenameOperations\" ok"));
        }
    }
}

// The value as the registry holds it; the form of its data is covered by the native tests.
TEST_F(PreviousVersionTest, PendingRenamesOfOtherTypesOrSizesAreReadAsTheRegistryHoldsThem) {
    const struct {
        std::optional<RegistryData> value;
        LSTATUS status;
        std::wstring operations;
    } cases[] = {
        {std::nullopt, ERROR_FILE_NOT_FOUND, L"untouched"},
        {RegistryData{REG_SZ, {'a', 0, 0, 0, 0, 0}}, ERROR_INVALID_DATA, L"untouched"},
        {RegistryData{REG_MULTI_SZ, {'a', 0}}, ERROR_SUCCESS, L""},
        {RegistryData{REG_MULTI_SZ, {'a', 0, 0, 0, 0}}, ERROR_INVALID_DATA, L"a"},
        {RegistryData{REG_MULTI_SZ, {'a', 0, 0, 0, 0, 0}}, ERROR_SUCCESS, L"a\0"s},
    };
    for (const auto& c : cases) {
        SetPendingRenames(c.value);
        setuputils::RegKey key;
        ASSERT_EQ(RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManager.c_str(), 0, KEY_READ, key.put()), 0);
        std::wstring operations = L"untouched";
        EXPECT_EQ(setuputils::ReadPendingRenames(key.get(), operations), c.status) << c.operations;
        EXPECT_EQ(operations, c.operations);
    }
}

} // namespace
} // namespace harness
