// Writes sample.msi, its driver INF and driver into a folder: a package that
// installs one kernel-driver package through KSProcess and the deferred
// driver actions, and removes it again.
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
constexpr wchar_t kService[] = L"nvsample";

void AddAction(harness::TestPackage& package, const std::wstring& action, int type,
               const std::wstring& target) {
    package.Sql(L"INSERT INTO `CustomAction` (`Action`, `Type`, `Source`, `Target`) VALUES (?, " +
                    std::to_wstring(type) + L", 'SetupUtils', ?)",
                {action, target});
}

void Sequence(harness::TestPackage& package, const std::wstring& action, int sequence) {
    package.Sql(L"INSERT INTO `InstallExecuteSequence` (`Action`, `Sequence`) VALUES (?, " +
                    std::to_wstring(sequence) + L")",
                {action});
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
    package.Sql(L"INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
                L"VALUES ('ForceFailure', 'FORCEFAIL', 4200)");
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
