#include "test_package.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <objbase.h>

#include "frame/session.h"
#include "msi_text.h"

namespace harness {
namespace {

// Summary information property ids (msidefs.h of mingw lacks them).
constexpr UINT kPidTemplate = 7;
constexpr UINT kPidRevisionNumber = 9;
constexpr UINT kPidPageCount = 14;
constexpr UINT kPidWordCount = 15;

// Component attribute: the component belongs to the 64-bit view (an Insert value).
constexpr wchar_t kComponent64Bit[] = L"#256";
constexpr int kCustomActionDllDeferred = 1 | 0x400 | 0x800;

std::string Narrow(const std::wstring& text) {
    std::string out;
    for (wchar_t c : text) {
        out.push_back(c < 0x80 ? static_cast<char>(c) : '?');
    }
    return out;
}

// Throws naming `what` unless `status` is ERROR_SUCCESS.
void Check(UINT status, const std::string& what) {
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error(what + " failed: " + std::to_string(status));
    }
}

} // namespace

std::wstring NewGuid() {
    GUID guid;
    CoCreateGuid(&guid);
    wchar_t text[40];
    StringFromGUID2(guid, text, 40);
    return text;
}

std::wstring MakeTempFolder(const std::wstring& prefix) {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    std::wstring guid = NewGuid();
    std::wstring folder = std::wstring(temp) + prefix + guid.substr(1, 8) + L"\\";
    if (!CreateDirectoryW(folder.c_str(), nullptr)) {
        throw std::runtime_error("cannot create " + Narrow(folder));
    }
    return folder;
}

void WriteTextFile(const std::wstring& path, const std::string& text) {
    std::ofstream file(std::filesystem::path(path), std::ios::binary);
    if (!(file << text)) {
        throw std::runtime_error("cannot write " + Narrow(path));
    }
}

std::string ReadTextFile(const std::wstring& path) {
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + Narrow(path));
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

TestPackage::TestPackage() : path_(MakeTempFolder(L"pkg") + L"test.msi"), productCode_(NewGuid()) {
    Check(MsiOpenDatabaseW(path_.c_str(), MSIDBOPEN_CREATE, database_.put()), "MsiOpenDatabaseW");
}

TestPackage::~TestPackage() = default;

void TestPackage::Sql(const std::wstring& query) {
    Sql(query, {});
}

void TestPackage::Sql(const std::wstring& query, const std::vector<std::wstring>& values) {
    MsiHandle view;
    UINT status = MsiDatabaseOpenViewW(database_.get(), query.c_str(), view.put());
    if (status == ERROR_SUCCESS) {
        MsiHandle record;
        if (!values.empty()) {
            record.reset(MsiCreateRecord(static_cast<UINT>(values.size())));
            for (UINT i = 0; i < values.size(); ++i) {
                MsiRecordSetStringW(record.get(), i + 1, values[i].c_str());
            }
        }
        status = MsiViewExecute(view.get(), record.get());
        MsiViewClose(view.get());
    }
    Check(status, "SQL " + Narrow(query));
}

void TestPackage::Insert(const std::wstring& table, const std::wstring& columns, const Rows& rows) {
    for (const std::vector<std::wstring>& row : rows) {
        std::wstring values;
        std::vector<std::wstring> texts;
        for (const std::wstring& value : row) {
            values += values.empty() ? L"" : L", ";
            const bool integer = value.size() > 1 && value[0] == L'#';
            values += integer ? value.substr(1) : L"?";
            if (!integer) {
                texts.push_back(value);
            }
        }
        Sql(L"INSERT INTO `" + table + L"` (" + columns + L") VALUES (" + values + L")", texts);
    }
}

void TestPackage::AddStandardTables() {
    Sql(L"CREATE TABLE `Property` (`Property` CHAR(72) NOT NULL, `Value` CHAR(0) NOT NULL LOCALIZABLE "
        L"PRIMARY KEY `Property`)");
    Sql(L"CREATE TABLE `Directory` (`Directory` CHAR(72) NOT NULL, `Directory_Parent` CHAR(72), "
        L"`DefaultDir` CHAR(255) NOT NULL LOCALIZABLE PRIMARY KEY `Directory`)");
    Sql(L"CREATE TABLE `Component` (`Component` CHAR(72) NOT NULL, `ComponentId` CHAR(38), "
        L"`Directory_` CHAR(72) NOT NULL, `Attributes` SHORT NOT NULL, `Condition` CHAR(255), "
        L"`KeyPath` CHAR(72) PRIMARY KEY `Component`)");
    Sql(L"CREATE TABLE `Feature` (`Feature` CHAR(38) NOT NULL, `Feature_Parent` CHAR(38), "
        L"`Title` CHAR(64) LOCALIZABLE, `Description` CHAR(255) LOCALIZABLE, `Display` SHORT, "
        L"`Level` SHORT NOT NULL, `Directory_` CHAR(72), `Attributes` SHORT NOT NULL PRIMARY KEY `Feature`)");
    Sql(L"CREATE TABLE `FeatureComponents` (`Feature_` CHAR(38) NOT NULL, `Component_` CHAR(72) NOT NULL "
        L"PRIMARY KEY `Feature_`, `Component_`)");
    Sql(L"CREATE TABLE `File` (`File` CHAR(72) NOT NULL, `Component_` CHAR(72) NOT NULL, "
        L"`FileName` CHAR(255) NOT NULL LOCALIZABLE, `FileSize` LONG NOT NULL, `Version` CHAR(72), "
        L"`Language` CHAR(20), `Attributes` SHORT, `Sequence` SHORT NOT NULL PRIMARY KEY `File`)");
    Sql(L"CREATE TABLE `Media` (`DiskId` SHORT NOT NULL, `LastSequence` SHORT NOT NULL, "
        L"`DiskPrompt` CHAR(64) LOCALIZABLE, `Cabinet` CHAR(255), `VolumeLabel` CHAR(32), `Source` CHAR(72) "
        L"PRIMARY KEY `DiskId`)");
    Sql(L"CREATE TABLE `CustomAction` (`Action` CHAR(72) NOT NULL, `Type` SHORT NOT NULL, `Source` CHAR(72), "
        L"`Target` CHAR(255), `ExtendedType` LONG PRIMARY KEY `Action`)");
    Sql(L"CREATE TABLE `Binary` (`Name` CHAR(72) NOT NULL, `Data` OBJECT NOT NULL PRIMARY KEY `Name`)");
    Sql(L"CREATE TABLE `Registry` (`Registry` CHAR(72) NOT NULL, `Root` SHORT NOT NULL, "
        L"`Key` CHAR(255) NOT NULL LOCALIZABLE, `Name` CHAR(255) LOCALIZABLE, `Value` CHAR(0) LOCALIZABLE, "
        L"`Component_` CHAR(72) NOT NULL PRIMARY KEY `Registry`)");
    Sql(L"CREATE TABLE `Error` (`Error` SHORT NOT NULL, `Message` CHAR(0) LOCALIZABLE PRIMARY KEY `Error`)");
    Sql(L"CREATE TABLE `InstallExecuteSequence` (`Action` CHAR(72) NOT NULL, `Condition` CHAR(255), "
        L"`Sequence` SHORT PRIMARY KEY `Action`)");

    Insert(L"Property", L"`Property`, `Value`",
           {{L"ProductCode", productCode_},
            {L"ProductName", L"setuputils test"},
            {L"ProductVersion", L"1.0.0"},
            {L"ProductLanguage", L"1033"},
            {L"Manufacturer", L"setuputils tests"},
            {L"UpgradeCode", NewGuid()},
            {L"ALLUSERS", L"1"}});
    Insert(L"Directory", L"`Directory`, `Directory_Parent`, `DefaultDir`",
           {{L"TARGETDIR", L"", L"SourceDir"}});
    Insert(L"Media", L"`DiskId`, `LastSequence`", {{L"#1", L"#100"}});
    Insert(L"Error", L"`Error`, `Message`",
           {{L"#25002", L"Driver package error."},
            {L"#666", L"Action [2]: [3] ([4])."},
            {L"#555", L"Driver installation failed: [2] [3]"}});
    const std::pair<const wchar_t*, int> standardSequence[] = {
        {L"CostInitialize", 800},        {L"FileCost", 900},           {L"CostFinalize", 1000},
        {L"InstallValidate", 1400},      {L"InstallInitialize", 1500}, {L"ProcessComponents", 1600},
        {L"RemoveRegistryValues", 2600}, {L"RemoveFiles", 3500},       {L"InstallFiles", 4000},
        {L"WriteRegistryValues", 5000},  {L"RegisterProduct", 6100},   {L"PublishFeatures", 6300},
        {L"PublishProduct", 6400},       {L"InstallFinalize", 6600}};
    for (const auto& [action, sequence] : standardSequence) {
        Insert(L"InstallExecuteSequence", L"`Action`, `Sequence`",
               {{action, L"#" + std::to_wstring(sequence)}});
    }
}

void TestPackage::AddDriverPackagesTable() {
    Sql(L"CREATE TABLE `NVDriverPackages` (`Component` CHAR(72) NOT NULL, `Flags` LONG NOT NULL, "
        L"`ReferenceComponents` CHAR(72) PRIMARY KEY `Component`)");
}

void TestPackage::AddRegReadersTable() {
    Sql(L"CREATE TABLE `RegReaders` (`Type` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL, "
        L"`Parameter` CHAR(72) NOT NULL, `Value` CHAR(0), `Component_` CHAR(72) NOT NULL, "
        L"`Condition` CHAR(255), `ListProperty` CHAR(72) PRIMARY KEY `Type`, `Name`, `Parameter`)");
}

void TestPackage::SetProperty(const std::wstring& name, const std::wstring& value) {
    Sql(L"INSERT INTO `Property` (`Property`, `Value`) VALUES (?, ?)", {name, value});
}

void TestPackage::SetProductCode(const std::wstring& productCode) {
    Sql(L"UPDATE `Property` SET `Value` = ? WHERE `Property` = 'ProductCode'", {productCode});
    productCode_ = productCode;
}

void TestPackage::AddDirectory(const std::wstring& directory, const std::wstring& defaultDir) {
    Sql(L"INSERT INTO `Directory` (`Directory`, `Directory_Parent`, `DefaultDir`) VALUES (?, 'TARGETDIR', ?)",
        {directory, defaultDir});
}

void TestPackage::AddFileComponent(const std::wstring& component, const std::wstring& directory,
                                   const std::wstring& fileName, const std::wstring& feature,
                                   int featureLevel) {
    AddFeature(feature, featureLevel);
    const std::wstring file = L"f_" + component;
    Insert(L"Component", L"`Component`, `ComponentId`, `Directory_`, `Attributes`, `KeyPath`",
           {{component, NewGuid(), directory, kComponent64Bit, file}});
    AddFileRow(file, component, fileName);
    Sql(L"INSERT INTO `FeatureComponents` (`Feature_`, `Component_`) VALUES (?, ?)", {feature, component});
}

void TestPackage::AddRegistryComponent(const std::wstring& component, bool sixtyFourBit,
                                       const std::wstring& feature) {
    AddFeature(feature, 1);
    Insert(L"Component", L"`Component`, `ComponentId`, `Directory_`, `Attributes`",
           {{component, NewGuid(), L"TARGETDIR", sixtyFourBit ? kComponent64Bit : L"#0"}});
    Sql(L"INSERT INTO `FeatureComponents` (`Feature_`, `Component_`) VALUES (?, ?)", {feature, component});
}

void TestPackage::AddFeature(const std::wstring& feature, int level) {
    if (std::find(features_.begin(), features_.end(), feature) == features_.end()) {
        features_.push_back(feature);
        Insert(L"Feature", L"`Feature`, `Display`, `Level`, `Attributes`",
               {{feature, L"#1", L"#" + std::to_wstring(level), L"#0"}});
    }
}

void TestPackage::AddFileRow(const std::wstring& file, const std::wstring& component,
                             const std::wstring& fileName) {
    static int sequence = 0;
    Insert(L"File", L"`File`, `Component_`, `FileName`, `FileSize`, `Attributes`, `Sequence`",
           {{file, component, fileName, L"#1", L"#8192", L"#" + std::to_wstring(++sequence)}});
}

void TestPackage::AddDriverPackage(const std::wstring& component, int flags, const std::wstring& reference) {
    Insert(L"NVDriverPackages", L"`Component`, `Flags`, `ReferenceComponents`",
           {{component, L"#" + std::to_wstring(flags), reference}});
}

void TestPackage::AddBinary(const std::wstring& name, const std::wstring& filePath) {
    MsiHandle record(MsiCreateRecord(2)), view;
    MsiRecordSetStringW(record.get(), 1, name.c_str());
    MsiRecordSetStreamW(record.get(), 2, filePath.c_str());
    UINT status = MsiDatabaseOpenViewW(database_.get(),
                                       L"INSERT INTO `Binary` (`Name`, `Data`) VALUES (?, ?)", view.put());
    Check(status ? status : MsiViewExecute(view.get(), record.get()), "adding the binary " + Narrow(name));
}

void TestPackage::AddDeferredAction(const std::wstring& action, const std::wstring& target, int extraType) {
    Sql(L"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES (?, " +
            std::to_wstring(kCustomActionDllDeferred | extraType) + L", 'SetupUtils', ?)",
        {action, target});
}

void TestPackage::Commit() {
    MsiHandle summary;
    UINT status = MsiGetSummaryInformationW(database_.get(), nullptr, 20, summary.put());
    if (status == ERROR_SUCCESS) {
        MsiSummaryInfoSetPropertyW(summary.get(), kPidTemplate, VT_LPSTR, 0, nullptr, L"x64;1033");
        MsiSummaryInfoSetPropertyW(summary.get(), kPidRevisionNumber, VT_LPSTR, 0, nullptr,
                                   NewGuid().c_str());
        MsiSummaryInfoSetPropertyW(summary.get(), kPidPageCount, VT_I4, 200, nullptr, nullptr);
        MsiSummaryInfoSetPropertyW(summary.get(), kPidWordCount, VT_I4, 2, nullptr, nullptr);
        status = MsiSummaryInfoPersist(summary.get());
    }
    Check(status == ERROR_SUCCESS ? MsiDatabaseCommit(database_.get()) : status, "commit");
}

void TestPackage::Close() {
    database_.reset();
}

InstalledProduct::InstalledProduct(TestPackage& package, const std::wstring& commandLine) {
    Install(package, commandLine);
}

InstalledProduct::InstalledProduct(const std::wstring& productCode, const std::wstring& upgradeCode,
                                   const std::wstring& name, const std::wstring& version) {
    TestPackage package;
    package.AddStandardTables();
    package.SetProductCode(productCode);
    for (const auto& [property, value] :
         {std::pair{L"UpgradeCode", upgradeCode}, {L"ProductName", name}, {L"ProductVersion", version}}) {
        package.Sql(L"UPDATE `Property` SET `Value` = ? WHERE `Property` = ?", {value, property});
    }
    package.AddRegistryComponent(L"Main", true);
    Install(package, L"");
}

InstalledProduct::~InstalledProduct() {
    MsiConfigureProductW(productCode_.c_str(), INSTALLLEVEL_DEFAULT, INSTALLSTATE_ABSENT);
}

void InstalledProduct::Install(TestPackage& package, const std::wstring& commandLine) {
    package.Commit();
    package.Close();
    MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
    Check(MsiInstallProductW(package.path().c_str(), commandLine.c_str()), "MsiInstallProductW");
    productCode_ = package.productCode();
}

TestSession::TestSession(TestPackage& package) {
    MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
    Check(MsiOpenPackageW((L"#" + std::to_wstring(package.database())).c_str(), session_.put()),
          "MsiOpenPackageW");
}

TestSession::TestSession(const std::wstring& packagePath) {
    MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
    Check(MsiOpenPackageW(packagePath.c_str(), session_.put()), "MsiOpenPackageW");
}

void TestSession::Cost() {
    for (const wchar_t* action : {L"CostInitialize", L"FileCost", L"CostFinalize"}) {
        Check(MsiDoActionW(session_.get(), action), Narrow(action));
    }
}

std::wstring TestSession::Property(const std::wstring& name) {
    return ReadMsiText([&](wchar_t* text, DWORD* size) {
        return MsiGetPropertyW(session_.get(), name.c_str(), text, size);
    });
}

void TestSession::SetProperty(const std::wstring& name, const std::wstring& value) {
    MsiSetPropertyW(session_.get(), name.c_str(), value.c_str());
}

TestPackage::Rows TestSession::Rows(const std::wstring& query) {
    MsiHandle database(MsiGetActiveDatabase(session_.get())), view;
    Check(MsiDatabaseOpenViewW(database.get(), query.c_str(), view.put()), "SQL " + Narrow(query));
    Check(MsiViewExecute(view.get(), 0), "SQL " + Narrow(query));
    TestPackage::Rows rows;
    for (MsiHandle record; MsiViewFetch(view.get(), record.put()) == ERROR_SUCCESS;) {
        std::vector<std::wstring>& row = rows.emplace_back(MsiRecordGetFieldCount(record.get()));
        for (UINT field = 1; field <= row.size(); ++field) {
            setuputils::GetRecordString(record.get(), field, row[field - 1]);
        }
    }
    return rows;
}

} // namespace harness
