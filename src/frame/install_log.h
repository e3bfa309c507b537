// The reporting interface of the driver installer and its two implementations:
// one posts to the running installation, one writes a text file.
#pragma once

#include <cstdio>

#include <windows.h>
#include <msi.h>
#include <setupapi.h>

namespace setuputils {

// Texts of the reboot marker kept under the driver-package installer's uninstall key.
inline constexpr wchar_t kRebootValueName[] = L"Reboot";
inline constexpr wchar_t kRebootForced[] = L"Force";

class InstallLog {
public:
    // Asks for a restart at the end of the installation.
    virtual void NeedReboot() = 0;
    // A file sub-queue of `fileCount` files starts, and ends.
    virtual void StartCopy(int fileCount);
    virtual void EndCopy();
    // One file operation of a queue: source, target, flags and Win32 error.
    virtual void Trace(const wchar_t* operation, const FILEPATHS_W& paths);
    virtual void Info(const wchar_t* text) = 0;
    // Reports `text` with the calling thread's last-error value.
    virtual void Error(const wchar_t* text) = 0;

protected:
    InstallLog() = default;
    InstallLog(const InstallLog&) = default;
    InstallLog& operator=(const InstallLog&) = default;
    ~InstallLog() = default;
};

// printf-style lines (wide rules; %ls for wide strings), cut to 511 characters.
void LogInfo(InstallLog& log, const wchar_t* format, ...);
void LogError(InstallLog& log, const wchar_t* format, ...);

// Reports to the running installation; the reboot request is a registry marker
// that KSCleanup turns into a reboot at the end of the installation.
class SessionLog final : public InstallLog {
public:
    explicit SessionLog(MSIHANDLE session) : session_(session) {}

    void NeedReboot() override;
    void Info(const wchar_t* text) override;
    void Error(const wchar_t* text) override;

private:
    MSIHANDLE session_;
};

// Writes lines to a text file opened by a command-line entry point; owns the
// file. Without a file, Info and Error write nothing.
class FileLog final : public InstallLog {
public:
    explicit FileLog(std::FILE* file) : file_(file) {}
    FileLog(const FileLog&) = delete;
    FileLog& operator=(const FileLog&) = delete;
    ~FileLog() { Close(); }

    void NeedReboot() override;
    void Info(const wchar_t* text) override;
    void Error(const wchar_t* text) override;
    void Close();

private:
    std::FILE* file_;
};

} // namespace setuputils
