#include "frame/install_log.h"

#include <cstdarg>
#include <string>

#include "frame/handles.h"
#include "frame/log_format.h"
#include "frame/product_codes.h"
#include "frame/session.h"

namespace setuputils {
namespace {

// Every driver line carries this prefix, whatever the action or the build.
constexpr wchar_t kSessionInfoTemplate[] = L"KSInstall64:info: [1]";
constexpr wchar_t kSessionErrorTemplate[] = L"KSInstall64:error #[1]:[2]";
constexpr wchar_t kFileInfoFormat[] = L"KSInstall64:info: %ls\n";
constexpr wchar_t kFileErrorFormat[] = L"KSInstall64:error 0x%X: %ls.\n";

LSTATUS WriteRebootMarker() {
    std::wstring path = std::wstring(kUninstallKeyPath) + kDriverInstallerProductCode;
    RegKey key;
    LSTATUS status = RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                     KEY_SET_VALUE, nullptr, key.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    return RegSetValueExW(key.get(), kRebootValueName, 0, REG_SZ,
                          reinterpret_cast<const BYTE*>(kRebootForced), sizeof(kRebootForced));
}

} // namespace

void InstallLog::StartCopy(int fileCount) {
    LogInfo(*this, L"Start copy operation: %d.", fileCount);
}

void InstallLog::EndCopy() {
    LogInfo(*this, L"End copy operation.");
}

void InstallLog::Trace(const wchar_t* operation, const FILEPATHS_W& paths) {
    auto text = [](const wchar_t* value) { return value != nullptr ? value : L""; };
    LogInfo(*this, L"%ls:'%ls' => '%ls' [%x:%x]", text(operation), text(paths.Source), text(paths.Target),
            paths.Flags, paths.Win32Error);
}

namespace {

// Logging leaves the thread's last-error value as it found it: an error report
// carries the value of the failed call, and the caller may still return it.
class PreservedLastError {
public:
    PreservedLastError() : error_(GetLastError()) {}
    PreservedLastError(const PreservedLastError&) = delete;
    PreservedLastError& operator=(const PreservedLastError&) = delete;
    ~PreservedLastError() { Restore(); }
    void Restore() const { SetLastError(error_); }

private:
    DWORD error_;
};

} // namespace

void LogInfo(InstallLog& log, const wchar_t* format, ...) {
    PreservedLastError lastError;
    std::va_list args;
    va_start(args, format);
    std::wstring line = FormatLogLine(format, args);
    va_end(args);
    log.Info(line.c_str());
}

void LogError(InstallLog& log, const wchar_t* format, ...) {
    PreservedLastError lastError;
    std::va_list args;
    va_start(args, format);
    std::wstring line = FormatLogLine(format, args);
    va_end(args);
    lastError.Restore();
    log.Error(line.c_str());
}

void SessionLog::NeedReboot() {
    Info(L"Set reboot action.");
    LSTATUS status = WriteRebootMarker();
    if (status != ERROR_SUCCESS) {
        SetLastError(static_cast<DWORD>(status));
        Error(L"Can't save reboot needed.");
    }
}

void SessionLog::Info(const wchar_t* text) {
    PostMessageRecord(session_, kMessageInfo, kSessionInfoTemplate, text, nullptr);
}

void SessionLog::Error(const wchar_t* text) {
    const DWORD lastError = GetLastError();
    PostMessageRecord(session_, kMessageInfo, kSessionErrorTemplate, static_cast<int>(lastError), text,
                      nullptr);
    PostMessageRecord(session_, kMessageError, nullptr, kErrorDriverPackage);
}

void FileLog::NeedReboot() {
    Info(L"Need reboot.");
}

void FileLog::Info(const wchar_t* text) {
    if (file_ != nullptr) {
        std::fwprintf(file_, kFileInfoFormat, text);
        std::fflush(file_);
    }
}

void FileLog::Error(const wchar_t* text) {
    DWORD lastError = GetLastError();
    if (file_ != nullptr) {
        std::fwprintf(file_, kFileErrorFormat, static_cast<unsigned>(lastError), text);
        std::fflush(file_);
    }
}

void FileLog::Close() {
    if (file_ != nullptr) {
        std::fclose(file_);
        file_ = nullptr;
    }
}

} // namespace setuputils
