// Real installer databases and sessions built by the tests.
#pragma once

#include <string>
#include <vector>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "frame/handles.h"

namespace harness {

using setuputils::MsiHandle;

// A package database created from SQL in the test prefix's temporary folder.
class TestPackage {
public:
    TestPackage();
    ~TestPackage();
    TestPackage(const TestPackage&) = delete;
    TestPackage& operator=(const TestPackage&) = delete;

    // Runs one SQL statement; throws std::runtime_error naming it on failure.
    void Sql(const std::wstring& query);
    // Runs a statement whose "?" markers take the fields of `values`, in order.
    void Sql(const std::wstring& query, const std::vector<std::wstring>& values);
    // Inserts `rows` into `table`; `columns` names them ("`A`, `B`"). A value
    // "#<number>" is an integer, any other a string (an empty one is null).
    using Rows = std::vector<std::vector<std::wstring>>;
    void Insert(const std::wstring& table, const std::wstring& columns, const Rows& rows);

    // Property, Directory, Component, Feature, FeatureComponents, File, Media,
    // CustomAction, Binary, Registry, Error and InstallExecuteSequence, with
    // the properties a product needs and the standard costing actions.
    void AddStandardTables();
    // The NVDriverPackages table of the driver actions.
    void AddDriverPackagesTable();
    // The RegReaders table of the reader actions.
    void AddRegReadersTable();

    void SetProperty(const std::wstring& name, const std::wstring& value);
    // Replaces the product code that AddStandardTables wrote.
    void SetProductCode(const std::wstring& productCode);
    // A directory below TARGETDIR whose target path is set by the property of its name.
    void AddDirectory(const std::wstring& directory, const std::wstring& defaultDir);
    // A component in feature `feature` (created when new) whose key file is `fileName`.
    void AddFileComponent(const std::wstring& component, const std::wstring& directory,
                          const std::wstring& fileName, const std::wstring& feature = L"Main",
                          int featureLevel = 1);
    // A component without files (its folder is its key path) in feature
    // `feature`, for the 64-bit or the 32-bit registry view.
    void AddRegistryComponent(const std::wstring& component, bool sixtyFourBit,
                              const std::wstring& feature = L"Main");
    void AddDriverPackage(const std::wstring& component, int flags, const std::wstring& reference = L"");
    // A Binary row holding the file at `filePath`.
    void AddBinary(const std::wstring& name, const std::wstring& filePath);
    // A deferred custom action bound to `target` of the library in the Binary table.
    void AddDeferredAction(const std::wstring& action, const std::wstring& target, int extraType = 0);

    // Writes the summary information and commits.
    void Commit();
    MSIHANDLE database() const { return database_.get(); }
    const std::wstring& path() const { return path_; }
    const std::wstring& productCode() const { return productCode_; }
    // Closes the database so that the installer may open the file itself.
    void Close();

private:
    void AddFeature(const std::wstring& feature, int level);
    void AddFileRow(const std::wstring& file, const std::wstring& component, const std::wstring& fileName);

    std::wstring path_;
    std::wstring productCode_;
    MsiHandle database_;
    std::vector<std::wstring> features_;
};

// A product installed through the installer, removed again when it goes.
class InstalledProduct {
public:
    // Installs `package` (committed and closed here) with `commandLine`.
    explicit InstalledProduct(TestPackage& package, const std::wstring& commandLine = L"");
    // A product of one registry component with these identities.
    InstalledProduct(const std::wstring& productCode, const std::wstring& upgradeCode,
                     const std::wstring& name, const std::wstring& version = L"1.0.0");
    ~InstalledProduct();
    InstalledProduct(const InstalledProduct&) = delete;
    InstalledProduct& operator=(const InstalledProduct&) = delete;

private:
    void Install(TestPackage& package, const std::wstring& commandLine);

    std::wstring productCode_;
};

// A session opened in this process on a committed package.
class TestSession {
public:
    explicit TestSession(TestPackage& package);
    // Opens the package file, as the installer would for an installed product.
    explicit TestSession(const std::wstring& packagePath);

    MSIHANDLE get() const { return session_.get(); }
    // CostInitialize, FileCost and CostFinalize, so that directories and
    // component states are the installer's own.
    void Cost();
    std::wstring Property(const std::wstring& name);
    void SetProperty(const std::wstring& name, const std::wstring& value);
    // Each row `query` selects from the session's database, every field as text
    // (an integer in decimal, a null as empty); throws when the query fails.
    TestPackage::Rows Rows(const std::wstring& query);

private:
    MsiHandle session_;
};

// A new GUID in braces, upper case.
std::wstring NewGuid();
// A fresh, empty folder below the temporary folder, ending in a backslash.
std::wstring MakeTempFolder(const std::wstring& prefix);
void WriteTextFile(const std::wstring& path, const std::string& text);
std::string ReadTextFile(const std::wstring& path);

} // namespace harness
