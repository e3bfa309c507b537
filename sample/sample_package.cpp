// Writes sample.msi and its driver INF into a folder: a package that installs
// one driver package and schedules its deferred actions through KSProcess.
//
//   sample_package.exe <folder> <path of setuputils.dll>
#include <cstdio>
#include <exception>
#include <string>

#include "driver_inf.h"
#include "test_package.h"

namespace {

// Until the deferred driver actions are in the library, the package binds its
// deferred driver action names to an entry point that does nothing, so that
// the scheduling can be watched in a real installation.
constexpr wchar_t kDeferredTarget[] = L"AddRemovedComponents";
constexpr int kImmediate = 1;
constexpr int kDeferred = 1 | 0x400 | 0x800;
constexpr int kRollback = kDeferred | 0x100;

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

void BuildSample(const std::wstring& folder, const std::wstring& library) {
    harness::WriteTextFile(folder + L"nvsample.inf", harness::DriverInf("nvsample"));
    harness::TestPackage package(folder + L"sample.msi");
    package.AddStandardTables();
    package.AddDriverPackagesTable();
    package.AddDirectory(L"DRIVERDIR", L"drivers:.");
    package.SetProperty(L"DRIVERDIR", L"C:\\Program Files\\Sample Provider\\Drivers\\");
    package.AddFileComponent(L"nvsample64", L"DRIVERDIR", L"nvsample.inf");
    package.AddDriverPackage(L"nvsample64", 0x20);
    package.AddBinary(L"SetupUtils", library);

    AddAction(package, L"KSCheckDeleteFlag", kImmediate, L"KSCheckDeleteFlag");
    AddAction(package, L"KSProcess", kImmediate, L"KSProcess");
    AddAction(package, L"KSCleanup", kImmediate, L"KSCleanup");
    for (const wchar_t* suffix : {L"", L"64"}) {
        AddAction(package, std::wstring(L"KSInstall") + suffix, kDeferred, kDeferredTarget);
        AddAction(package, std::wstring(L"KSRollback") + suffix, kRollback, kDeferredTarget);
        AddAction(package, std::wstring(L"KSUninstall") + suffix, kDeferred, kDeferredTarget);
    }
    Sequence(package, L"KSCheckDeleteFlag", 1450);
    Sequence(package, L"KSProcess", 1700);
    Sequence(package, L"KSCleanup", 6700);
    package.Commit();
    std::wprintf(L"ProductCode=%ls\n", package.productCode().c_str());
}

} // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 3) {
        std::fwprintf(stderr, L"usage: sample_package <folder> <setuputils.dll>\n");
        return 2;
    }
    try {
        std::wstring folder = argv[1];
        if (folder.back() != L'\\') {
            folder.push_back(L'\\');
        }
        BuildSample(folder, argv[2]);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sample_package: %s\n", error.what());
        return 1;
    }
}
