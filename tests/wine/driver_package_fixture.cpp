#include "driver_package_fixture.h"

namespace harness {
namespace {

constexpr wchar_t kDriverDirectory[] = L"DRIVERDIR";

const wchar_t* const kDeferredDriverActions[] = {L"KSInstall",   L"KSRollback",   L"KSUninstall",
                                                 L"KSInstall64", L"KSRollback64", L"KSUninstall64"};

std::wstring ForInstallAction(const std::wstring& action) {
    if (action.find(L"Install") != std::wstring::npos) {
        return L"KSInstInstall";
    }
    return action.find(L"Rollback") != std::wstring::npos ? L"KSInstRollback" : L"KSInstUninstall";
}

} // namespace

DriverPackageTest::DriverPackageTest()
    : driverFolder_(MakeTempFolder(L"drv")),
      sourceFolder_(package_.path().substr(0, package_.path().find_last_of(L'\\') + 1)) {
    package_.AddStandardTables();
    package_.AddDriverPackagesTable();
    package_.AddDirectory(kDriverDirectory, L"drivers:.");
    package_.SetProperty(kDriverDirectory, driverFolder_);
    package_.AddBinary(L"SetupUtils", SetupUtilsLibrary::Path());
    for (const wchar_t* action : kDeferredDriverActions) {
        package_.AddDeferredAction(action, ForInstallAction(action));
    }
}

void DriverPackageTest::AddDriver(const std::wstring& component, const std::wstring& fileName, int flags,
                                  const std::wstring& reference, const std::wstring& feature) {
    package_.AddFileComponent(component, kDriverDirectory, fileName, feature);
    package_.AddDriverPackage(component, flags, reference);
}

void DriverPackageTest::AddPlainComponent(const std::wstring& component, const std::wstring& feature) {
    package_.AddFileComponent(component, kDriverDirectory, component + L".txt", feature);
    WriteTextFile(sourceFolder_ + component + L".txt", "plain\r\n");
}

void DriverPackageTest::WriteInf(const std::wstring& fileName, const std::string& text) {
    WriteTextFile(driverFolder_ + fileName, text);
    WriteTextFile(sourceFolder_ + fileName, text);
}

TestSession& DriverPackageTest::OpenCosted(const Properties& properties) {
    package_.Commit();
    return Costed(std::make_unique<TestSession>(package_), properties);
}

TestSession& DriverPackageTest::InstallThenOpen(const std::wstring& commandLine,
                                                const Properties& properties) {
    installed_.emplace(package_, commandLine);
    return Costed(std::make_unique<TestSession>(package_.path()), properties);
}

TestSession& DriverPackageTest::Costed(std::unique_ptr<TestSession> session, const Properties& properties) {
    session_ = std::move(session);
    for (const auto& [name, value] : properties) {
        session_->SetProperty(name, value);
    }
    session_->Cost();
    messages_.Clear();
    return *session_;
}

UINT DriverPackageTest::RunKSProcess() {
    return library_.Action("KSProcess")(session_->get());
}

std::wstring DriverPackageTest::ComponentId(const std::wstring& component) {
    MsiHandle database(MsiGetActiveDatabase(session_->get()));
    MsiHandle view;
    MsiDatabaseOpenViewW(
        database.get(),
        (L"SELECT `ComponentId` FROM `Component` WHERE `Component` = '" + component + L"'").c_str(),
        view.put());
    MsiViewExecute(view.get(), 0);
    MsiHandle record;
    MsiViewFetch(view.get(), record.put());
    wchar_t id[64] = L"";
    DWORD size = 64;
    MsiRecordGetStringW(record.get(), 1, id, &size);
    return id;
}

} // namespace harness
