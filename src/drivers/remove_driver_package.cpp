#include "drivers/remove_driver_package.h"

#include "drivers/inf_file.h"
#include "drivers/inf_location.h"
#include "drivers/inf_path.h"
#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr DWORD kDriverStorePathChars = MAX_PATH;

using SetupGetInfDriverStoreLocationFn = BOOL(WINAPI*)(PCWSTR, PSP_ALTPLATFORM_INFO, PCWSTR, PWSTR, DWORD,
                                                       PDWORD);

// Opens the staged INF, or its copy in the driver store. Reports each try.
InfHandle OpenStagedInf(const std::wstring& stagedPath, InstallLog& log) {
    UINT errorLine = 0;
    InfHandle inf(SetupOpenInfFileW(stagedPath.c_str(), nullptr, INF_STYLE_WIN4, &errorLine));
    if (inf) {
        return inf;
    }
    LogInfo(log, L"SetupOpenInfFile error: %d.", static_cast<int>(errorLine));
    auto driverStoreLocation =
        FindSetupApiFunction<SetupGetInfDriverStoreLocationFn>("SetupGetInfDriverStoreLocationW");
    wchar_t storePath[kDriverStorePathChars] = L"";
    if (driverStoreLocation == nullptr || !driverStoreLocation(stagedPath.c_str(), nullptr, nullptr,
                                                               storePath, kDriverStorePathChars, nullptr)) {
        return inf;
    }
    LogInfo(log, L"InfDriverStoreLocation: %ls", storePath);
    errorLine = 0;
    inf.reset(SetupOpenInfFileW(storePath, nullptr, INF_STYLE_WIN4, &errorLine));
    if (!inf) {
        LogInfo(log, L"SetupOpenInfFile from Driver Store error:%d.", static_cast<int>(errorLine));
    }
    return inf;
}

} // namespace

namespace {

// One removal and what it was given.
struct Removal {
    const std::wstring& componentId;
    const std::optional<std::wstring>& givenService;
    unsigned flags;
    InstallLog& log;

    // A step that failed: a given service still goes (`serviceStep` is logged
    // as information); without one `step` is an error.
    void Fail(const wchar_t* serviceStep, const wchar_t* step) const {
        if (givenService) {
            LogInfo(log, L"%ls", serviceStep);
            StopDeleteService(*givenService, flags, log);
        } else {
            LogError(log, L"%ls", step);
        }
    }
};

// The staged INF of the package, found through its location value and
// opened; nothing after a failure, which is reported.
InfHandle OpenPackageInf(const Removal& removal, InfPath& staged) {
    std::wstring stagedPath;
    if (const LSTATUS status = ReadInfLocation(removal.componentId, stagedPath); status != ERROR_SUCCESS) {
        SetLastError(static_cast<DWORD>(status));
        LogError(removal.log, L"Can't get inf file location");
        removal.Fail(L"GetInfFileLocation error", L"GetInfFileLocation");
        return InfHandle();
    }
    LogInfo(removal.log, L"Inf file location: %ls", stagedPath.c_str());
    if (!ResolveInfPath(stagedPath, removal.log, staged)) {
        DeleteInfLocation(removal.componentId, removal.log);
        removal.Fail(L"SplitPath error", L"SplitPath");
        return InfHandle();
    }
    InfHandle inf = OpenStagedInf(staged.full, removal.log);
    if (!inf) {
        removal.Fail(L"SetupGetInfDriverStoreLocation fail.", L"SetupGetInfDriverStoreLocation");
        DeleteInfLocation(removal.componentId, removal.log);
    }
    return inf;
}

// What the INF installed for its service `service`: the service, the copied
// files, the registry values and, once the INF is closed, the staged INF.
void RemoveInstalledPackage(const Removal& removal, InfHandle inf, const std::wstring& infPath,
                            const std::wstring& installSection, const std::wstring& service) {
    StopDeleteService(service, removal.flags, removal.log);
    FileRemover files(removal.log);
    RemoveQueuedFiles(infPath, inf.get(), installSection, files, removal.log);
    RegistryValueRemover values(removal.log);
    RemoveInfRegistry(inf.get(), installSection, installSection + kServicesSectionSuffix, values, service,
                      removal.log);
    inf.reset();
    RemoveOemInf(infPath, removal.log);
}

} // namespace

void RemoveDriverPackage(const std::wstring& componentId, const std::optional<std::wstring>& givenService,
                         unsigned flags, InstallLog& log) {
    LogInfo(log, L"KSInstUninstall start.");
    const Removal removal{componentId, givenService, flags, log};
    InfPath staged;
    InfHandle inf = OpenPackageInf(removal, staged);
    if (!inf) {
        return;
    }
    const std::wstring installSection = InstallSectionOrDefault(inf.get(), log);
    std::wstring infService;
    const bool infNamesService =
        FindServiceName(inf.get(), installSection + kServicesSectionSuffix, infService) == InfLookup::Found;
    // A staged INF that names another service may belong to another package: only
    // the given service and the location value go.
    if (givenService && (!infNamesService || infService != *givenService)) {
        LogInfo(log, L"Opened unknown INF");
        StopDeleteService(*givenService, flags, log);
        DeleteInfLocation(componentId, log);
        return;
    }
    if (infNamesService) {
        RemoveInstalledPackage(removal, std::move(inf), staged.full, installSection, infService);
    }
    inf.reset();
    DeleteInfLocation(componentId, log);
    if (infNamesService) {
        LogInfo(log, L"Uninstall driver %ls success.", infService.c_str());
    } else {
        LogInfo(log, L"Uninstall driver unknown success.");
    }
}

} // namespace setuputils
