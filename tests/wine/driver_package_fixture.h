// A package with driver components listed in NVDriverPackages, the deferred
// driver actions bound to the library, and INF files on disk.
#pragma once

#include <string>
#include <memory>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "driver_inf.h"
#include "library.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {

inline constexpr wchar_t kSeparator[] = L"\x0001";

class DriverPackageTest : public ::testing::Test {
protected:
    DriverPackageTest();

    // Adds a driver component whose key file is `fileName` in the driver folder.
    void AddDriver(const std::wstring& component, const std::wstring& fileName, int flags = 0,
                   const std::wstring& reference = L"", const std::wstring& feature = L"Main");
    // A component in the driver folder that is not a driver package.
    void AddPlainComponent(const std::wstring& component, const std::wstring& feature);
    // Writes `text` as `fileName` into the driver folder (and the source folder).
    void WriteInf(const std::wstring& fileName, const std::string& text);

    using Properties = std::vector<std::pair<std::wstring, std::wstring>>;
    // Commits the package and opens a session on it with `properties`, costed.
    TestSession& OpenCosted(const Properties& properties = {});
    // Installs the package with `commandLine`, then opens a costed session on it
    // with `properties`, as a later maintenance run would.
    TestSession& InstallThenOpen(const std::wstring& commandLine, const Properties& properties);
    TestSession& Costed(std::unique_ptr<TestSession> session, const Properties& properties);

    UINT RunKSProcess();
    std::wstring ComponentId(const std::wstring& component);

    SetupUtilsLibrary library_;
    TestPackage package_;
    std::wstring driverFolder_;
    std::wstring sourceFolder_;
    std::optional<InstalledProduct> installed_; // removed after the session closed
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

} // namespace harness
