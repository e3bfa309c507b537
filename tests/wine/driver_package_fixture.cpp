#include "driver_package_fixture.h"

#include <process.h>

#include <algorithm>
#include <filesystem>

#include "drivers/inf_location.h"
#include "drivers/install_service.h"

namespace harness {
namespace {

constexpr wchar_t kDriverDirectory[] = L"DRIVERDIR";
constexpr wchar_t kSessionManager[] = L"System\\CurrentControlSet\\Control\\Session Manager";
constexpr wchar_t kPendingRenames[] = L"PendingFileRenameOperations";

// Each deferred driver action of the package and the library entry it runs.
const std::pair<const wchar_t*, const wchar_t*> kDeferredDriverActions[] = {
    {L"KSInstall", L"KSInstInstall"},     {L"KSRollback", L"KSInstRollback"},
    {L"KSUninstall", L"KSInstUninstall"}, {L"KSInstall64", L"KSInstInstall"},
    {L"KSRollback64", L"KSInstRollback"}, {L"KSUninstall64", L"KSInstUninstall"}};

} // namespace

std::wstring ActionData(const std::wstring& folder, const std::wstring& fileName, const std::wstring& id,
                        const std::wstring& flags) {
    return folder + kSeparator + fileName + kSeparator + id + kSeparator + flags + kSeparator + L"3000000";
}

::testing::AssertionResult InOrder(const Texts& lines, const Texts& steps) {
    auto at = lines.begin();
    for (const auto& step : steps) {
        if ((at = std::find(at, lines.end(), step)) == lines.end()) {
            return ::testing::AssertionFailure()
                   << "no " << step << " in order in " << ::testing::PrintToString(lines);
        }
        ++at;
    }
    return ::testing::AssertionSuccess();
}

Texts FileLines(const std::wstring& path) {
    const std::string text = Exists(path) ? ReadTextFile(path) : "";
    Texts lines;
    for (std::size_t start = 0, end = 0; start < text.size(); start = end + 2) {
        end = std::min(text.find("\r\n", start), text.size());
        lines.emplace_back(text.begin() + start, text.begin() + end);
    }
    return lines;
}

bool Exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

Texts PendingRenames() {
    std::wstring data(1 << 16, L'\0');
    DWORD size = static_cast<DWORD>(data.size() * sizeof(wchar_t));
    RegGetValueW(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, RRF_RT_REG_MULTI_SZ, nullptr,
                 data.data(), &size);
    Texts entries;
    for (const wchar_t* entry = data.c_str(); *entry != L'\0'; entry += entries.back().size() + 1) {
        entry += entries.emplace_back(entry).size() + 1;
        entries.emplace_back(entry);
    }
    return entries;
}

intptr_t RunDll32(const std::wstring& entry, const Texts& arguments) {
    const std::wstring library = L"\"" + SetupUtilsLibrary::Path() + L"\"," + entry;
    std::vector<const wchar_t*> argv{L"rundll32.exe", library.c_str()};
    for (const auto& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    argv.push_back(nullptr);
    return _wspawnvp(_P_WAIT, L"rundll32.exe", argv.data());
}

DriverTest::DriverTest()
    : pendingValue_(ReadRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames)) {
    package_.AddStandardTables();
    package_.AddDriverPackagesTable();
    package_.AddDirectory(kDriverDirectory, L"drivers:.");
    package_.SetProperty(kDriverDirectory, driverFolder_);
    package_.AddBinary(L"SetupUtils", SetupUtilsLibrary::Path());
    for (const auto& [action, target] : kDeferredDriverActions) {
        package_.AddDeferredAction(action, target);
    }
}

DriverTest::~DriverTest() {
    for (const auto& name : names_) {
        StopAndDeleteService(name);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kEventLogKey + name);
        files_.insert(files_.end(), {kDriversFolder + name + L".sys", kInfFolder + name + L".inf",
                                     kInfFolder + name + L".pnf"});
    }
    RecordingLog ignored;
    for (const auto& id : ids_) {
        setuputils::DeleteInfLocation(id, ignored);
    }
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTestKey);
    // The restart operations the test added go, and the files they would delete.
    const Texts pending = PendingRenames();
    for (std::size_t i = pendingAtStart_.size(); i < pending.size(); i += 2) {
        files_.push_back(pending[i].substr(4));
    }
    RestoreRegistryValue(HKEY_LOCAL_MACHINE, kSessionManager, kPendingRenames, pendingValue_);
    for (const auto& file : files_) {
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileW(file.c_str());
    }
    std::error_code ignoredError;
    std::filesystem::remove_all(folder_, ignoredError);
    std::filesystem::remove_all(driverFolder_, ignoredError);
}

void DriverTest::AddDriver(const std::wstring& component, const std::wstring& fileName, int flags,
                           const std::wstring& reference, const std::wstring& feature) {
    package_.AddFileComponent(component, kDriverDirectory, fileName, feature);
    package_.AddDriverPackage(component, flags, reference);
}

void DriverTest::AddPlainComponent(const std::wstring& component, const std::wstring& feature) {
    package_.AddFileComponent(component, kDriverDirectory, component + L".txt", feature);
    WritePackageInf(component + L".txt", "plain\r\n");
}

void DriverTest::WritePackageInf(const std::wstring& fileName, const std::string& text) {
    WriteTextFile(driverFolder_ + fileName, text);
    WriteTextFile(package_.path().substr(0, package_.path().find_last_of(L'\\') + 1) + fileName, text);
}

TestSession& DriverTest::OpenCosted(const Properties& properties) {
    package_.Commit();
    session_ = std::make_unique<TestSession>(package_);
    for (const auto& [name, value] : properties) {
        session_->SetProperty(name, value);
    }
    session_->Cost();
    messages_.Clear();
    return *session_;
}

TestSession& DriverTest::InstallThenOpen(const std::wstring& commandLine, const Properties& properties) {
    installed_.emplace(package_, commandLine);
    session_ = std::make_unique<TestSession>(package_.path());
    for (const auto& [name, value] : properties) {
        session_->SetProperty(name, value);
    }
    session_->Cost();
    messages_.Clear();
    return *session_;
}

std::wstring DriverTest::ComponentId(const std::wstring& component) {
    MsiHandle database(MsiGetActiveDatabase(session_->get()));
    MsiHandle view;
    MsiHandle record;
    MsiDatabaseOpenViewW(database.get(), L"SELECT `ComponentId` FROM `Component` WHERE `Component` = ?",
                         view.put());
    MsiHandle key(MsiCreateRecord(1));
    MsiRecordSetStringW(key.get(), 1, component.c_str());
    MsiViewExecute(view.get(), key.get());
    MsiViewFetch(view.get(), record.put());
    wchar_t id[64] = L"";
    DWORD size = 64;
    MsiRecordGetStringW(record.get(), 1, id, &size);
    return id;
}

std::wstring DriverTest::WriteInf(const std::wstring& inf, const std::string& text, bool withDriver) {
    const std::wstring& name = names_.emplace_back(inf.substr(0, inf.size() - 4));
    if (withDriver) {
        CopyFileW(TestDriverPath().c_str(), (folder_ + name + L".sys").c_str(), FALSE);
    }
    WriteTextFile(folder_ + inf, text);
    return folder_ + inf;
}

std::optional<std::wstring> DriverTest::Location(const std::wstring& id) {
    return ReadRegistryString(HKEY_LOCAL_MACHINE, setuputils::InfLocationKeyPath(), id);
}

DWORD DriverTest::Install(const std::wstring& inf, const std::string& text, unsigned flags) {
    const std::wstring path = WriteInf(inf, text);
    log_.lines.clear();
    return setuputils::InstallService(path, id_, nullptr, flags, log_);
}

} // namespace harness
