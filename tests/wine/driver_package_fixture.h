// The driver tests' scaffolding: a package with driver components in
// NVDriverPackages and the deferred driver actions bound to the library, and
// driver packages installed from a folder of the test's own. What a test
// installs (services, driver files, staged INFs, registry values, INF
// locations, restart operations) goes when it ends.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver_inf.h"
#include "frame/install_log.h"
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
inline const std::wstring kEventLogKey = L"System\\CurrentControlSet\\Services\\EventLog\\System\\";
inline const std::wstring kTestKey = L"SOFTWARE\\SetupUtilsTest";
inline const std::wstring kInfo = L"KSInstall64:info: ";

// Driver action data as KSProcess writes it, with the library's progress ticks.
std::wstring ActionData(const std::wstring& folder, const std::wstring& fileName, const std::wstring& id,
                        const std::wstring& flags);
// Whether `steps` occur in `lines` in this order, whatever comes between them.
::testing::AssertionResult InOrder(const Texts& lines, const Texts& steps);
// The lines of a text file.
Texts FileLines(const std::wstring& path);
bool Exists(const std::wstring& path);
// PendingFileRenameOperations: source, target, source, target... (an empty target deletes).
Texts PendingRenames();
// The prefix's rundll32 calling `entry` of the library with `arguments`, run to its end; its exit code.
intptr_t RunDll32(const std::wstring& entry, const Texts& arguments);

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
protected:
    DriverTest();
    ~DriverTest() override;

    // Adds a driver component whose key file is `fileName` in the driver folder.
    void AddDriver(const std::wstring& component, const std::wstring& fileName, int flags = 0,
                   const std::wstring& reference = L"", const std::wstring& feature = L"Main");
    // A component in the driver folder that is not a driver package.
    void AddPlainComponent(const std::wstring& component, const std::wstring& feature);
    // Writes `text` as `fileName` into the driver folder and beside the package.
    void WritePackageInf(const std::wstring& fileName, const std::string& text);
    // Commits the package and opens a session on it with `properties`, costed.
    TestSession& OpenCosted(const Properties& properties = {});
    // Installs the package with `commandLine`, then opens a costed session as a maintenance run would.
    TestSession& InstallThenOpen(const std::wstring& commandLine, const Properties& properties);
    UINT Run(const char* action) { return library_.Action(action)(session_->get()); }
    std::wstring ComponentId(const std::wstring& component);

    // Writes `text` as `inf` into folder_ with the test driver beside it as
    // <name>.sys, <name> being `inf` without extension: the package's name.
    std::wstring WriteInf(const std::wstring& inf, const std::string& text, bool withDriver = true);
    // Installs that INF under id_; log_ holds only its lines.
    DWORD Install(const std::wstring& inf, const std::string& text, unsigned flags = 0);
    std::wstring NewId() { return ids_.emplace_back(NewGuid()); }
    // The staged INF recorded for component `id`.
    static std::optional<std::wstring> Location(const std::wstring& id);

    SetupUtilsLibrary library_;
    TestPackage package_;
    const std::wstring driverFolder_ = MakeTempFolder(L"drv");
    std::optional<InstalledProduct> installed_; // removed after the session closed
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;

    const std::optional<RegistryData> pendingValue_;
    const Texts pendingAtStart_ = PendingRenames();
    const std::wstring folder_ = MakeTempFolder(L"drvinst");
    Texts names_;
    Texts ids_;
    Texts files_;
    const std::wstring id_ = NewId();
    RecordingLog log_;
};

} // namespace harness
