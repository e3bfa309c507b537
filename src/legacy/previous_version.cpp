#include "legacy/previous_version.h"

#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <vector>

#include <msiquery.h>

#include "frame/action_guard.h"
#include "frame/child_process.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "legacy/uninstall_rules.h"

namespace setuputils {
namespace {

constexpr wchar_t kUninstall2[] = L"Uninstall2";
constexpr wchar_t kRunUninstall[] = L"RunUninstall";
constexpr wchar_t kGetResultCode[] = L"GetResultCode";
constexpr wchar_t kRevertReg[] = L"RevertReg";

constexpr wchar_t kSessionManagerKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
constexpr wchar_t kPendingRenamesValue[] = L"PendingFileRenameOperations";

constexpr UINT kOutOfMemory = ERROR_OUTOFMEMORY;                  // 14
constexpr UINT kNoActiveDatabase = ERROR_DATABASE_DOES_NOT_EXIST; // 1065
constexpr UINT kUninstallFailed = 0x80090020;                     // NTE_FAIL

// The temporary folder is read into MAX_PATH characters.
constexpr DWORD kTempFolderChars = MAX_PATH;

// Reports (action, text, code) and returns the code.
UINT Fail(MSIHANDLE session, const wchar_t* action, const wchar_t* text, UINT code) {
    ReportActionError(session, action, text, code);
    return code;
}

// The thread's last error, taken before anything else can change it.
UINT FailWithLastError(MSIHANDLE session, const wchar_t* action, const wchar_t* text) {
    return Fail(session, action, text, GetLastError());
}

// The two files handed to the uninstaller, in the temporary folder.
struct TempFiles {
    std::wstring response;
    std::wstring log;
};

// The response file of `name` as the Binary table holds it.
UINT ReadResponseFile(MSIHANDLE session, const wchar_t* name, std::vector<char>& data) {
    const std::wstring query = L"SELECT `Binary`.`Data` FROM `Binary` WHERE `Binary`.`Name` = 'uninstall." +
                               std::wstring(name) + L".iss'";
    MsiHandle database = OpenActiveDatabase(session);
    if (!database) {
        return Fail(session, kUninstall2, L"Can't get active database", kNoActiveDatabase);
    }
    View view;
    MsiHandle record;
    // A missing row (or table) leaves no record, whose data size is 0 as that of an empty row.
    if (ExecuteView(database.get(), query.c_str(), view) == ERROR_SUCCESS) {
        MsiViewFetch(view.get(), record.put());
    }
    DWORD size = MsiRecordDataSize(record.get(), 1);
    if (size == 0) {
        return Fail(session, kUninstall2, L"MsiRecordDataSize failed", kUninstallFailed);
    }
    data.resize(size);
    if (const UINT status = MsiRecordReadStream(record.get(), 1, data.data(), &size);
        status != ERROR_SUCCESS) {
        return Fail(session, kUninstall2, L"Can't read from database uninstall.iss", status);
    }
    data.resize(size);
    ReportInfo(session, L"Read uninstall.iss from database");
    return ERROR_SUCCESS;
}

UINT NameTempFiles(MSIHANDLE session, const wchar_t* name, TempFiles& files) {
    wchar_t folder[kTempFolderChars] = L"";
    const DWORD length = GetTempPathW(kTempFolderChars, folder);
    if (length == 0 || length >= kTempFolderChars) {
        // A path that does not fit fails as a buffer too small.
        return Fail(session, kUninstall2, L"Can't get path to temp folder",
                    length == 0 ? GetLastError() : ERROR_INSUFFICIENT_BUFFER);
    }
    const std::wstring base = std::wstring(folder) + L"uninstall." + name;
    files.response = base + L".iss";
    files.log = base + L".log";
    return ERROR_SUCCESS;
}

FileHandle CreateTempFile(const std::wstring& path) {
    return FileHandle(CreateFileW(path.c_str(), GENERIC_ALL, FILE_SHARE_WRITE, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
}

// Writes the response file and leaves an empty log for the uninstaller to fill.
UINT WriteTempFiles(MSIHANDLE session, const std::vector<char>& data, const TempFiles& files) {
    FileHandle response = CreateTempFile(files.response);
    FileHandle log = response ? CreateTempFile(files.log) : FileHandle();
    if (!response || !log) {
        return FailWithLastError(session, kUninstall2, L"Can't create temp files ");
    }
    if (CloseHandle(log.release())) {
        ReportInfo(session, (L"TempLog: " + files.log).c_str());
    }
    DWORD written = 0;
    if (!WriteFile(response.get(), data.data(), static_cast<DWORD>(data.size()), &written, nullptr)) {
        return FailWithLastError(session, kUninstall2, L"Can't write data to temp file ");
    }
    if (CloseHandle(response.release())) {
        ReportInfo(session, (L"TempISS: " + files.response).c_str());
    }
    return ERROR_SUCCESS;
}

// Everything up to the run: the files in place and the command line made.
UINT PrepareRun(MSIHANDLE session, const std::wstring& uninstallString, const wchar_t* name, TempFiles& files,
                std::wstring& commandLine) {
    std::vector<char> response;
    UINT status = ReadResponseFile(session, name, response);
    if (status == ERROR_SUCCESS) {
        status = NameTempFiles(session, name, files);
    }
    if (status == ERROR_SUCCESS) {
        status = WriteTempFiles(session, response, files);
    }
    if (status == ERROR_SUCCESS) {
        commandLine = UninstallCommandLine(uninstallString, files.response, files.log);
    }
    return status;
}

// "PendingFileRenameOperations" of the open Session Manager key, without its
// final NUL: 0, 2 when there is none, 13 when it is not a well-formed
// REG_MULTI_SZ, or another registry error. One character or less is empty.
LSTATUS ReadPendingRenames(HKEY sessionManager, std::wstring& operations) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (const LSTATUS status =
            RegQueryValueExW(sessionManager, kPendingRenamesValue, nullptr, &type, nullptr, &size);
        status != ERROR_SUCCESS) {
        return status;
    }
    if (type != REG_MULTI_SZ) {
        return ERROR_INVALID_DATA;
    }
    if (size / sizeof(wchar_t) <= 1) {
        operations.clear();
        return ERROR_SUCCESS;
    }
    // Room for an odd last byte, so that it shows as such rather than as a buffer too small.
    std::vector<wchar_t> buffer((size + 1) / sizeof(wchar_t));
    DWORD read = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    if (const LSTATUS status = RegQueryValueExW(sessionManager, kPendingRenamesValue, nullptr, &type,
                                                reinterpret_cast<BYTE*>(buffer.data()), &read);
        status != ERROR_SUCCESS) {
        return status;
    }
    PendingRenames kept = KeepPendingRenames(std::wstring_view(buffer.data(), read / sizeof(wchar_t)), read);
    operations = std::move(kept.operations);
    return static_cast<LSTATUS>(kept.status);
}

// Takes "PendingFileRenameOperations" away for the run, into `saved` when
// there was one to read. 0, or the error that ends the removal.
UINT TakePendingRenames(MSIHANDLE session, std::optional<std::wstring>& saved) {
    RegKey key;
    if (const LSTATUS status =
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManagerKey, 0, KEY_ALL_ACCESS, key.put());
        status != ERROR_SUCCESS) {
        return Fail(session, kUninstall2,
                    L"Can't open reg key HKLM\\SYSTEM\\CurrentControlSet\\Control\\Session Manager\\",
                    status);
    }
    std::wstring operations;
    const LSTATUS read = ReadPendingRenames(key.get(), operations);
    if (read == ERROR_FILE_NOT_FOUND) {
        ReportInfo(session, L"There is no reg key, it's ok");
        return ERROR_SUCCESS;
    }
    if (read != ERROR_SUCCESS) {
        // A value that cannot be read is left where it is, and nothing is saved.
        return ERROR_SUCCESS;
    }
    saved = std::move(operations);
    if (const LSTATUS status = RegDeleteValueW(key.get(), kPendingRenamesValue); status != ERROR_SUCCESS) {
        return Fail(session, kUninstall2, L"Delete value error", status);
    }
    ReportInfo(session, L"Deleting value \"PendingFileRenameOperations\" ok");
    return ERROR_SUCCESS;
}

// The uninstaller could not be run: reported with the last error; the run fails with 1603.
UINT FailRun(MSIHANDLE session, const wchar_t* text) {
    FailWithLastError(session, kRunUninstall, text);
    return ERROR_INSTALL_FAILURE;
}

// Runs the command line and waits for it; the exit code is only logged: the
// log tells whether the removal worked. 0, or 1603 when it cannot be run.
UINT RunUninstall(MSIHANDLE session, std::wstring& commandLine) {
    ReportInfo(session, commandLine.c_str());
    ChildProcess uninstaller;
    if (!uninstaller.Start(commandLine)) {
        return FailRun(session, L"CreateProcess() fail: ");
    }
    if (uninstaller.Wait() == WAIT_FAILED) {
        return FailRun(session, L"WaitForSingleObject() fail");
    }
    const std::optional<DWORD> exitCode = uninstaller.ExitCode();
    if (!exitCode) {
        return FailRun(session, L"GetExitCodeProcess() fail");
    }
    uninstaller.Close();
    ReportInfo(session, L"ExitCode: [1]", static_cast<int>(*exitCode));
    return ERROR_SUCCESS;
}

UINT ReportUnknownResultCode(MSIHANDLE session) {
    UINT error = GetLastError();
    if (error == ERROR_SUCCESS) {
        // Nothing failed that the system knows of; the run must still not pass for a success.
        error = kUninstallFailed;
    }
    return Fail(session, kGetResultCode, L"sscanf() fail. ResultCode is unknown", error);
}

// The whole log, read into `data`; a log that could not be opened fails here, as a read.
UINT ReadLog(MSIHANDLE session, HANDLE log, std::unique_ptr<char[]>& data, DWORD& read) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(log, &size)) {
        return FailWithLastError(session, kGetResultCode, L"ReadFile() fail");
    }
    // More than one read can take counts as too large to allocate.
    data.reset(size.QuadPart > MAXDWORD ? nullptr : new (std::nothrow) char[size.QuadPart]);
    if (!data) {
        return Fail(session, kGetResultCode, L"Out of memmory", kOutOfMemory);
    }
    if (!ReadFile(log, data.get(), static_cast<DWORD>(size.QuadPart), &read, nullptr)) {
        return FailWithLastError(session, kGetResultCode, L"ReadFile() fail");
    }
    return ERROR_SUCCESS;
}

// 0 when the log's first result code is 0; 0x80090020 for another code; an
// error code when the log cannot be read or holds no result code.
UINT GetResultCode(MSIHANDLE session, const wchar_t* logPath) {
    FileHandle log(CreateFileW(logPath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr));
    // Only a null handle counts as not opened: a missing log fails when it is read.
    if (log.get() == nullptr) {
        return FailWithLastError(session, kGetResultCode, L"CreateFile() fail");
    }
    std::unique_ptr<char[]> data;
    DWORD size = 0;
    if (const UINT status = ReadLog(session, log.get(), data, size); status != ERROR_SUCCESS) {
        return status;
    }
    const std::optional<std::int32_t> code = FindResultCode(std::string_view(data.get(), size));
    if (!code) {
        return ReportUnknownResultCode(session);
    }
    ReportInfo(session, L"ResultCode = [1]", *code);
    if (*code != 0) {
        ReportActionError(session, kGetResultCode, L"ResultCode = [1]", static_cast<UINT>(*code));
        return kUninstallFailed;
    }
    return ERROR_SUCCESS;
}

// Deletes a temporary file; the first failure's error is kept in `error`.
bool DeleteTempFile(const std::wstring& path, DWORD& error) {
    if (DeleteFileW(path.c_str())) {
        return true;
    }
    if (error == ERROR_SUCCESS) {
        error = GetLastError();
    }
    return false;
}

// The run judged by its log; the temporary files go only after a success,
// so that a failed run can be looked into.
UINT RunAndCleanUp(MSIHANDLE session, std::wstring& commandLine, const TempFiles& files) {
    if (const UINT status = RunUninstall(session, commandLine); status != ERROR_SUCCESS) {
        return Fail(session, kUninstall2, L"RunUninstall() fail", status);
    }
    if (const UINT status = GetResultCode(session, files.log.c_str()); status != ERROR_SUCCESS) {
        return Fail(session, kUninstall2, L"ResultCode != ERROR_SUCCESS", status);
    }
    DWORD error = ERROR_SUCCESS;
    const bool responseDeleted = DeleteTempFile(files.response, error);
    const bool logDeleted = DeleteTempFile(files.log, error);
    if (!responseDeleted || !logDeleted) {
        return Fail(session, kUninstall2, L"error deleting temporary files", error);
    }
    ReportInfo(session, L"Deleting temp files: TempISS and TempLog");
    return ERROR_SUCCESS;
}

// Writes `saved` back, followed by the operations queued since. 0 (also when
// the key cannot be opened) or the error of the write.
UINT RevertReg(MSIHANDLE session, const std::wstring& saved) {
    RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSessionManagerKey, 0, KEY_ALL_ACCESS, key.put()) !=
        ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    std::wstring added;
    const std::wstring merged =
        ReadPendingRenames(key.get(), added) == ERROR_SUCCESS ? MergePendingRenames(saved, added) : saved;
    // With the terminator of the last operation's list.
    const LSTATUS status = RegSetValueExW(key.get(), kPendingRenamesValue, 0, REG_MULTI_SZ,
                                          reinterpret_cast<const BYTE*>(merged.c_str()),
                                          static_cast<DWORD>((merged.size() + 1) * sizeof(wchar_t)));
    if (status != ERROR_SUCCESS) {
        return Fail(session, kRevertReg, L"error SetMultiStringValue \"PendingFileRenameOperations\"",
                    status);
    }
    return ERROR_SUCCESS;
}

// Extracts "uninstall.<name>.iss" from the Binary table to the temporary
// folder, runs the uninstall string with it, judges the run by the log and
// removes the temporary files (kept after a failed run). Pending file renames
// are taken away for the run and written back, with those the uninstaller
// queued after them. 0 or an error code. `outOfMemory` names the reporter of
// an allocation that fails while the run is prepared.
UINT Uninstall2(MSIHANDLE session, const std::wstring& uninstallString, const wchar_t* name,
                const wchar_t*& outOfMemory) {
    ReportInfo(session, L"Uninstall2() Started");
    if (uninstallString.empty()) {
        // The command line would start with the switches: nothing to run, so nothing is extracted.
        return Fail(session, kUninstall2, L"Uninstall string is empty", ERROR_INSTALL_FAILURE);
    }
    TempFiles files;
    std::wstring commandLine;
    outOfMemory = kUninstall2;
    if (const UINT status = PrepareRun(session, uninstallString, name, files, commandLine);
        status != ERROR_SUCCESS) {
        return status;
    }
    outOfMemory = nullptr;
    std::optional<std::wstring> saved;
    UINT result = TakePendingRenames(session, saved);
    if (result == ERROR_SUCCESS) {
        result = RunAndCleanUp(session, commandLine, files);
    }
    if (saved) {
        if (const UINT reverted = RevertReg(session, *saved); reverted != ERROR_SUCCESS) {
            result = reverted;
        } else {
            ReportInfo(session, L"Reverting reg value \"PendingFileRenameOperations\" ok");
        }
    }
    return result;
}

UINT FailRemoval(MSIHANDLE session, const PreviousComponent& component, UINT removal) {
    return Fail(session, component.action, component.failure,
                component.returnsRemovalCode ? removal : ERROR_INSTALL_FAILURE);
}

// An empty property leaves the string empty; Uninstall2 turns that down.
UINT Remove(MSIHANDLE session, const PreviousComponent& component, const wchar_t*& outOfMemory) {
    std::wstring uninstallString;
    outOfMemory = component.action;
    if (const UINT status = GetPropertyString(session, component.property, uninstallString);
        status != ERROR_SUCCESS) {
        return Fail(session, component.action, component.propertyFailure, status);
    }
    outOfMemory = nullptr;
    const UINT removal = Uninstall2(session, uninstallString, component.name, outOfMemory);
    return removal == ERROR_SUCCESS ? ERROR_SUCCESS : FailRemoval(session, component, removal);
}

} // namespace

UINT RemovePreviousComponent(MSIHANDLE session, const PreviousComponent& component) noexcept {
    const wchar_t* outOfMemory = nullptr;
    try {
        return Remove(session, component, outOfMemory);
    } catch (const std::bad_alloc&) {
        if (outOfMemory == nullptr) {
            ReportActionException(session, component.action);
            return ERROR_INSTALL_FAILURE;
        }
        Fail(session, outOfMemory, L"Out of memory", kOutOfMemory);
        return outOfMemory == component.action ? kOutOfMemory : FailRemoval(session, component, kOutOfMemory);
    } catch (...) {
        ReportActionException(session, component.action);
        return ERROR_INSTALL_FAILURE;
    }
}

} // namespace setuputils
