// The driver tests' fixture: a package with driver components and the deferred
// driver actions, and driver packages installed from the package's folder.
// What a test installs or schedules for restart goes when it ends.
#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include "driver_inf.h"
#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {

using Texts = std::vector<std::wstring>;
using Properties = std::vector<std::pair<std::wstring, std::wstring>>;

inline constexpr wchar_t kSeparator[] = L"\x0001";
inline const std::wstring kDriversFolder = L"C:\\windows\\system32\\drivers\\";
inline const std::wstring kInfFolder = L"C:\\windows\\inf\\";
inline const std::wstring kInfo = L"KSInstall64:info: ";
inline constexpr wchar_t kSessionManager[] = L"System\\CurrentControlSet\\Control\\Session Manager";
inline constexpr wchar_t kPendingRenames[] = L"PendingFileRenameOperations";

// Driver action data as KSProcess writes it, with the library's progress ticks.
inline std::wstring ActionData(const std::wstring& folder, const std::wstring& file, const std::wstring& id,
                               const std::wstring& flags) {
    return folder + kSeparator + file + kSeparator + id + kSeparator + flags + kSeparator + L"3000000";
}

// Whether `steps` occur in `lines` in this order, whatever comes between them.
inline ::testing::AssertionResult InOrder(const Texts& lines, const Texts& steps) {
    for (auto at = lines.begin(); const auto& step : steps) {
        if ((at = std::find(at, lines.end(), step)) == lines.end()) {
            return ::testing::AssertionFailure()
                   << "no " << step << " in order in " << ::testing::PrintToString(lines);
        }
        ++at;
    }
    return ::testing::AssertionSuccess();
}

inline std::optional<RegistryData> PendingRenames() {
    return ReadRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames);
}

inline bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Every line in order; an error line carries the last-error value.
class RecordingLog final : public setuputils::InstallLog {
public:
    void NeedReboot() override {}
    void Info(const wchar_t* text) override { lines.push_back(text); }
    void Error(const wchar_t* text) override {
        lines.push_back(L"error " + std::to_wstring(GetLastError()) + L": " + text);
    }
    Texts lines;
};

class DriverTest : public ::testing::Test {
public: // also to the helpers of the tests
    DriverTest() {
        package_.AddStandardTables();
        package_.AddDriverPackagesTable();
        package_.AddDirectory(L"DRIVERDIR", L"drivers:.");
        package_.SetProperty(L"DRIVERDIR", folder_);
        package_.AddBinary(L"SetupUtils", SetupUtilsLibrary::Path());
        for (const wchar_t* bits : {L"", L"64"}) {
            package_.AddDeferredAction(std::wstring(L"KSInstall") + bits, L"KSInstInstall");
            package_.AddDeferredAction(std::wstring(L"KSRollback") + bits, L"KSInstRollback");
            package_.AddDeferredAction(std::wstring(L"KSUninstall") + bits, L"KSInstUninstall");
        }
    }
    ~DriverTest() override {
        for (const auto& name : names_) {
            StopAndDeleteService(name);
            files_.insert(files_.end(), {kDriversFolder + name + L".sys", kInfFolder + name + L".inf",
                                         kInfFolder + name + L".pnf"});
        }
        for (const auto& id : ids_) {
            setuputils::DeleteInfLocation(id, log_);
        }
        // The restart operations the test added go, and the moved-away images they would delete.
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, pendingValue_);
        for (const auto& entry : std::filesystem::directory_iterator(kDriversFolder)) {
            if (entry.path().filename().wstring().starts_with(L"csp")) {
                files_.push_back(entry.path().wstring());
            }
        }
        for (const auto& file : files_) {
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            DeleteFileW(file.c_str());
        }
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }

    // A driver component with key file `fileName` in the driver folder; its id is ids_.back().
    void AddDriver(const std::wstring& component, const std::wstring& fileName, int flags = 0,
                   const std::wstring& reference = L"", const std::wstring& feature = L"Main") {
        package_.AddFileComponent(component, L"DRIVERDIR", fileName, feature);
        package_.Sql(L"UPDATE `Component` SET `ComponentId` = ? WHERE `Component` = ?", {NewId(), component});
        package_.AddDriverPackage(component, flags, reference);
    }
    // Writes `text` as `fileName` into the driver folder and beside the package.
    void WritePackageFile(const std::wstring& fileName, const std::string& text) {
        WriteTextFile(folder_ + fileName, text);
        WriteTextFile(package_.path().substr(0, package_.path().find_last_of(L'\\') + 1) + fileName, text);
    }
    // Opens a session with `properties` on the package, costed; installed with `commandLine` first if given.
    TestSession& OpenCosted(const Properties& properties = {}, const wchar_t* commandLine = nullptr) {
        if (commandLine != nullptr) {
            installed_.emplace(package_, commandLine);
            session_ = std::make_unique<TestSession>(package_.path());
        } else {
            package_.Commit();
            session_ = std::make_unique<TestSession>(package_);
        }
        for (const auto& [name, value] : properties) {
            session_->SetProperty(name, value);
        }
        session_->Cost();
        messages_.Clear();
        return *session_;
    }
    UINT Run(const char* action) { return library_.Action(action)(session_->get()); }
    // How often the installer was informed of `text`.
    long Informed(const std::wstring& text) const { return std::ranges::count(messages_.InfoTexts(), text); }
    // Writes `inf` into folder_ beside the test driver as <name>.sys, <name> being the package's.
    std::wstring WriteInf(const std::wstring& inf, const std::string& text) {
        const std::wstring& name = names_.emplace_back(inf.substr(0, inf.size() - 4));
        CopyFileW(TestProgramPath(L"test_driver.sys").c_str(), (folder_ + name + L".sys").c_str(), FALSE);
        WriteTextFile(folder_ + inf, text);
        return folder_ + inf;
    }
    // Installs that INF under id_; log_ holds only its lines.
    DWORD Install(const std::wstring& inf, const std::string& text, unsigned flags = 0) {
        const std::wstring path = WriteInf(inf, text);
        log_.lines.clear();
        return setuputils::InstallService(path, id_, nullptr, flags, log_);
    }
    // The staged INF recorded for component `id`.
    static std::optional<std::wstring> Location(const std::wstring& id) {
        return ReadRegistryString(HKEY_LOCAL_MACHINE, setuputils::InfLocationKeyPath(), id);
    }
    std::wstring NewId() { return ids_.emplace_back(NewGuid()); }

    SetupUtilsLibrary library_;
    TestPackage package_;
    std::optional<InstalledProduct> installed_; // removed after the session closed
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;

    const std::optional<RegistryData> pendingValue_ = PendingRenames();
    const std::wstring folder_ = MakeTempFolder(L"drv"); // DRIVERDIR
    Texts names_, ids_, files_;
    const std::wstring id_ = NewId();
    RecordingLog log_;
};

} // namespace harness
