// Writes sample.msi, its driver INF and driver into a folder: a package that
// installs one kernel-driver package through KSProcess and the deferred
// driver actions, creates the provider's host service, registers its TLS
// package with fast start-up turned off, registers readers, key carriers and
// a smart-card type through temporary Registry rows (a port list made from the
// PropertyEx table), and removes all of it again.
//
//   sample_package.exe <folder> <setuputils.dll> <driver .sys>
//
// Setting FORCEFAIL=1 on the command line of the installation makes a
// deferred action after the driver installation fail, so that the
// installation rolls back.
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

#include <windows.h>

#include "driver_inf.h"
#include "test_package.h"

namespace {

constexpr int kImmediate = 1;
constexpr int kDeferred = 1 | 0x400 | 0x800;
constexpr int kRollback = kDeferred | 0x100;
constexpr int kSetProperty = 51;
constexpr wchar_t kService[] = L"nvsample";
constexpr wchar_t kOnInstall[] = L"NOT REMOVE";
constexpr wchar_t kOnRemoval[] = L"REMOVE=\"ALL\"";

void AddAction(harness::TestPackage& package, const std::wstring& action, int type,
               const std::wstring& target) {
    package.Sql(L"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES (?, " +
                    std::to_wstring(type) + L", 'SetupUtils', ?)",
                {action, target});
}

void Sequence(harness::TestPackage& package, const std::wstring& action, int sequence,
              const std::wstring& condition = L"") {
    package.Sql(L"INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) VALUES (?, ?, " +
                    std::to_wstring(sequence) + L")",
                {action, condition});
}

// A deferred action of the library and, before it, the action that hands it
// `data` as its CustomActionData.
void AddDeferredWithData(harness::TestPackage& package, const std::wstring& action, int type,
                         const std::wstring& target, const std::wstring& data, int sequence,
                         const std::wstring& condition) {
    package.Sql(L"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES (?, " +
                    std::to_wstring(kSetProperty) + L", ?, ?)",
                {L"Set" + action, action, data});
    AddAction(package, action, type, target);
    Sequence(package, L"Set" + action, sequence - 1, condition);
    Sequence(package, action, sequence, condition);
}

// The host service, from Windows 10 on non-interactive, with a local group;
// the rollback action also removes them at uninstallation.
void AddHostService(harness::TestPackage& package) {
    AddAction(package, L"SetNoInteractiveServices", kImmediate, L"SetNoInteractiveServices");
    Sequence(package, L"SetNoInteractiveServices", 1460);
    AddDeferredWithData(package, L"MsiCreateServiceRollback", kRollback, L"MsiCreateServiceRollback",
                        L"nvsamplehost/nvsamplegroup", 4302, kOnInstall);
    AddDeferredWithData(package, L"MsiCreateService", kDeferred, L"MsiCreateService",
                        L"nvsamplehost/Sample provider host/[NOINTERACTIVESERVICES]/nvsamplegroup", 4304,
                        kOnInstall);
    AddDeferredWithData(package, L"RemoveHostService", kDeferred, L"MsiCreateServiceRollback",
                        L"nvsamplehost/nvsamplegroup", 4306, kOnRemoval);
}

// The TLS package: fast start-up off after the list is edited, both undone by
// one action on rollback and on removal.
void AddTlsPackage(harness::TestPackage& package) {
    const struct {
        const wchar_t* action;
        int type;
        const wchar_t* condition;
    } steps[] = {{L"SslRegRollback", kRollback, kOnInstall},
                 {L"SslRegInstall", kDeferred, kOnInstall},
                 {L"HiberbootDisable", kDeferred, kOnInstall},
                 {L"SslRegister", kDeferred, kOnInstall},
                 {L"SslRegUninstall", kDeferred, kOnRemoval}};
    int sequence = 4400;
    for (const auto& step : steps) {
        AddAction(package, step.action, step.type, step.action);
        Sequence(package, step.action, sequence++, step.condition);
    }
}

// Readers, carriers and a random source from RegReaders, and one card type
// registered in both registry views. The installer removes no temporary row
// at uninstallation: the permanent "-" row deletes the provider's tree then,
// and UninstallSmartCard removes the card types. The RemoveRegistry row gives
// that table the row its temporary rows are made from.
void AddReaders(harness::TestPackage& package) {
    package.AddRegistryComponent(L"nvcsp", false);
    package.AddRegistryComponent(L"nvcsp64", true);
    package.SetProperty(L"DefaultCSP80Name", L"Norvane Sample CSP");
    // The port list is made by ProcessPropertyEx from the PropertyEx table.
    package.SetProperty(L"SECONDPORT", L"COM2");
    package.Sql(L"CREATE TABLE `PropertyEx` (`Property` CHAR(72) NOT NULL, `Value` CHAR(255), "
                L"`Flags` SHORT NOT NULL, `Condition` CHAR(255) PRIMARY KEY `Property`)");
    package.Sql(L"INSERT INTO `PropertyEx` (`Property`, `Value`, `Flags`, `Condition`) "
                L"VALUES ('SAMPLEPORTS', 'COM1,[SECONDPORT]', 0, 'NOT Installed')");
    package.Sql(L"CREATE TABLE `RegReaders` (`Type` CHAR(72) NOT NULL, `Name` CHAR(255) NOT NULL, "
                L"`Parameter` CHAR(72) NOT NULL, `Value` CHAR(255), `Component_` CHAR(72) NOT NULL, "
                L"`Condition` CHAR(255), `ListProperty` CHAR(72) PRIMARY KEY `Type`, `Name`, `Parameter`)");
    const wchar_t* const rows[][6] = {
        {L"KeyCarriers", L"FAT12\\Default", L"-", L"Removable disk", L"1", L""},
        {L"KeyCarriers", L"FAT12\\Default", L"DLL", L"nvfat12.dll", L"1", L""},
        {L"Random", L"Bio\\Default", L"Level", L"#3", L"1", L""},
        {L"KeyDevices", L"Sample", L"Enabled", L"#1", L"1", L"SAMPLEPORTS"},
        {L"KeyCarriers", L"Not here", L"DLL", L"none.dll", L"0", L""},
        {L"SmartCards", L"Sample Card", L"ATR", L"#x3B02145011", L"1", L""},
        {L"SmartCards", L"Sample Card", L"Mask", L"#xFFFFFFFFFF", L"1", L""},
        {L"SmartCards", L"Sample Card", L"CalaisRegistered", L"1", L"1", L""},
    };
    for (const auto& row : rows) {
        package.Sql(L"INSERT INTO `RegReaders` (`Type`, `Name`, `Parameter`, `Value`, `Component_`, "
                    L"`Condition`, `ListProperty`) VALUES (?, ?, ?, ?, 'nvcsp64', ?, ?)",
                    {row[0], row[1], row[2], row[3], row[4], row[5]});
    }
    package.Sql(L"INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Name`, `Component_`) "
                L"VALUES ('ProviderTree', 2, 'SOFTWARE\\Norvane', '-', 'nvcsp64')");
    package.Sql(L"CREATE TABLE `RemoveRegistry` (`RemoveRegistry` CHAR(72) NOT NULL, `Root` SHORT NOT NULL, "
                L"`Key` CHAR(255) NOT NULL LOCALIZABLE, `Name` CHAR(255) LOCALIZABLE, "
                L"`Component_` CHAR(72) NOT NULL PRIMARY KEY `RemoveRegistry`)");
    package.Sql(L"INSERT INTO `RemoveRegistry` (`RemoveRegistry`, `Root`, `Key`, `Name`, `Component_`) "
                L"VALUES ('ObsoleteTree', 2, 'SOFTWARE\\Norvane\\Obsolete', '-', 'nvcsp64')");

    // Before the installer writes and removes registry values.
    AddAction(package, L"ProcessPropertyEx", kImmediate, L"ProcessPropertyEx");
    Sequence(package, L"ProcessPropertyEx", 1540);
    AddAction(package, L"ProcessRegReaders", kImmediate, L"ProcessRegReaders");
    Sequence(package, L"ProcessRegReaders", 1550, kOnInstall);
    AddDeferredWithData(package, L"UninstallSmartCard", kDeferred, L"UninstallSmartCard",
                        L"[DefaultCSP80Name]", 4502, kOnRemoval);
}

void BuildSample(const std::wstring& folder, const std::wstring& library, const std::wstring& driver) {
    harness::DriverInfOptions inf;
    inf.service = "nvsample";
    inf.copyFiles = true;
    inf.addReg = true;
    harness::WriteTextFile(folder + L"nvsample.inf", harness::DriverInf(inf));
    if (!CopyFileW(driver.c_str(), (folder + kService + L".sys").c_str(), FALSE)) {
        throw std::runtime_error("cannot copy the driver");
    }

    harness::TestPackage package(folder + L"sample.msi");
    package.AddStandardTables();
    package.AddDriverPackagesTable();
    package.AddDirectory(L"DRIVERDIR", L"drivers:.");
    package.SetProperty(L"DRIVERDIR", L"C:\\Program Files\\Sample Provider\\");
    package.AddFileComponent(L"nvsample64", L"DRIVERDIR", L"nvsample.inf");
    package.AddFile(L"nvsample64", L"nvsample.sys");
    package.AddDriverPackage(L"nvsample64", 0);
    package.AddBinary(L"SetupUtils", library);

    AddAction(package, L"KSCheckDeleteFlag", kImmediate, L"KSCheckDeleteFlag");
    AddAction(package, L"KSProcess", kImmediate, L"KSProcess");
    AddAction(package, L"KSCleanup", kImmediate, L"KSCleanup");
    for (const wchar_t* suffix : {L"", L"64"}) {
        AddAction(package, std::wstring(L"KSInstall") + suffix, kDeferred, L"KSInstInstall");
        AddAction(package, std::wstring(L"KSRollback") + suffix, kRollback, L"KSInstRollback");
        AddAction(package, std::wstring(L"KSUninstall") + suffix, kDeferred, L"KSInstUninstall");
    }
    // Deferred, and without driver action data of its own: it fails.
    AddAction(package, L"ForceFailure", kDeferred, L"KSInstInstall");

    Sequence(package, L"KSCheckDeleteFlag", 1450);
    // After InstallFiles: the deferred driver actions need the package's files in place.
    Sequence(package, L"KSProcess", 4100);
    AddHostService(package);
    AddTlsPackage(package);
    AddReaders(package);
    // After every deferred action of the installation, so that all of them are rolled back.
    Sequence(package, L"ForceFailure", 6500, L"FORCEFAIL");
    Sequence(package, L"KSCleanup", 6700);
    package.Commit();
    std::wprintf(L"ProductCode=%ls\n", package.productCode().c_str());
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 4) {
        std::fwprintf(stderr, L"usage: sample_package <folder> <setuputils.dll> <driver .sys>\n");
        return 2;
    }
    try {
        std::wstring folder = argv[1];
        if (folder.back() != L'\\') {
            folder.push_back(L'\\');
        }
        BuildSample(folder, argv[2], argv[3]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sample_package: %s\n", error.what());
        return 1;
    }
}
