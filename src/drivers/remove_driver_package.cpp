#include "drivers/remove_driver_package.h"

#include <optional>
#include <vector>

#include "drivers/driver_rules.h"
#include "drivers/inf_file.h"
#include "drivers/inf_location.h"
#include "drivers/inf_path.h"
#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr wchar_t kSetupApi[] = L"setupapi.dll";
constexpr DWORD kDriverStorePathChars = MAX_PATH;
constexpr wchar_t kEventLogPath[] = L"System\\CurrentControlSet\\Services\\EventLog\\";
constexpr wchar_t kDefaultEventLogType[] = L"System";
constexpr wchar_t kInfExtension[] = L".inf";
constexpr wchar_t kPnfExtension[] = L".pnf";
constexpr wchar_t kRelativeRoot[] = L"HKR";

using SetupUninstallOemInfFn = BOOL(WINAPI*)(PCWSTR, DWORD, PVOID);
using SetupGetInfDriverStoreLocationFn = BOOL(WINAPI*)(PCWSTR, PSP_ALTPLATFORM_INFO, PCWSTR, PWSTR, DWORD,
                                                       PDWORD);

// Looked up by name: older systems' setupapi.dll lacks these functions.
template <typename Function>
Function FindSetupApiFunction(const char* name) {
    HMODULE setupApi = GetModuleHandleW(kSetupApi);
    if (setupApi == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(setupApi, name)));
}

// Resolved once per process; the library takes no locks, and a second
// resolution on another thread would find the same address.
SetupUninstallOemInfFn UninstallOemInfFunction() {
    static SetupUninstallOemInfFn function =
        FindSetupApiFunction<SetupUninstallOemInfFn>("SetupUninstallOEMInfW");
    return function;
}

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

// Logs the outcome `status` of one removal. False when it failed and the
// remover's errors count.
template <typename Remover>
bool LogRemoval(const Remover& remover, UINT status, InstallLog& log) {
    if (status == ERROR_SUCCESS) {
        LogInfo(log, L"%ls success.", remover.label());
    } else if (remover.ignoreErrors()) {
        LogInfo(log, L"%ls error ignored.", remover.label());
    } else {
        return false;
    }
    return true;
}

struct ScanContext {
    FileRemover* remover;
    InstallLog* log;
};

UINT CALLBACK ScanQueueCallback(PVOID context, UINT notification, UINT_PTR param1, UINT_PTR /*param2*/) {
    auto& scan = *static_cast<ScanContext*>(context);
    const wchar_t* label = scan.remover->label();
    if (notification != SPFILENOTIFY_QUEUESCAN) {
        LogError(*scan.log, L"%ls. Unknown notification %d.", label, static_cast<int>(notification));
        return ERROR_INVALID_PARAMETER;
    }
    const auto* target = reinterpret_cast<const wchar_t*>(param1);
    LogInfo(*scan.log, L"Start %ls for file:'%ls'.", label, target);
    return LogRemoval(*scan.remover, scan.remover->Remove(target), *scan.log) ? NO_ERROR
                                                                              : ERROR_INSTALL_FAILURE;
}

// The sections a directive line names: every field, as the installation
// processes them. Copies of single files ("@file") name no section.
bool ReadNamedSections(INFCONTEXT& line, std::vector<std::wstring>& sections) {
    sections.clear();
    const DWORD count = SetupGetFieldCount(&line);
    for (DWORD field = 1; field <= count; ++field) {
        std::wstring name;
        if (!ReadInfField(line, field, name)) {
            return false;
        }
        if (!name.empty() && name.front() != L'@') {
            sections.push_back(std::move(name));
        }
    }
    return true;
}

// Queues the copy sections named by the section's CopyFiles lines. Returns 0 or 1603.
UINT QueueCopySections(HSPFILEQ queue, const std::wstring& sourceRoot, HINF inf, const std::wstring& section,
                       InstallLog& log) {
    INFCONTEXT line{};
    if (!SetupFindFirstLineW(inf, section.c_str(), L"CopyFiles", &line)) {
        LogInfo(log, L"No files found '%ls.CopyFiles'.", section.c_str());
        return ERROR_SUCCESS;
    }
    std::vector<std::wstring> copySections;
    do {
        if (!ReadNamedSections(line, copySections)) {
            LogError(log, L"SetupGetStringField('%ls',CopyFiles)", section.c_str());
            return ERROR_INSTALL_FAILURE;
        }
        for (const std::wstring& copySection : copySections) {
            if (!SetupQueueCopySectionW(queue, sourceRoot.c_str(), inf, nullptr, copySection.c_str(), 0)) {
                LogError(log, L"SetupQueueCopySection");
                return ERROR_INSTALL_FAILURE;
            }
            LogInfo(log, L"Add section '%ls'.", copySection.c_str());
        }
    } while (SetupFindNextMatchLineW(&line, L"CopyFiles", &line));
    LogInfo(log, L"Build file queue success.");
    return ERROR_SUCCESS;
}

// A registry root abbreviation of an AddReg line; HKR only when a relative root is given.
std::optional<HKEY> RegistryRoot(const std::wstring& abbreviation, HKEY relativeRoot) {
    if (abbreviation == L"HKCR") {
        return HKEY_CLASSES_ROOT;
    }
    if (abbreviation == L"HKCU") {
        return HKEY_CURRENT_USER;
    }
    if (abbreviation == L"HKLM") {
        return HKEY_LOCAL_MACHINE;
    }
    if (abbreviation == kRelativeRoot && relativeRoot != nullptr) {
        return relativeRoot;
    }
    return std::nullopt;
}

std::wstring JoinKeyPath(const std::wstring& parent, const std::wstring& child) {
    if (parent.empty()) {
        return child;
    }
    return child.empty() ? parent : parent + L"\\" + child;
}

// Removes the values of one registry section. Returns false when a line names an unknown root.
bool RemoveRegistrySection(HINF inf, const std::wstring& registrySection, HKEY relativeRoot,
                           const std::wstring& relativePath, RegistryValueRemover& remover, InstallLog& log) {
    const wchar_t* label = remover.label();
    LogInfo(log, L"%ls section:'%ls'.", label, registrySection.c_str());
    INFCONTEXT line{};
    if (!SetupFindFirstLineW(inf, registrySection.c_str(), nullptr, &line)) {
        LogInfo(log, L"No registry entry found at section:'%ls'.", registrySection.c_str());
        return true;
    }
    do {
        std::wstring abbreviation;
        std::wstring subkey;
        std::wstring value;
        ReadInfField(line, 1, abbreviation);
        ReadInfField(line, 2, subkey);
        ReadInfField(line, 3, value);
        std::optional<HKEY> root = RegistryRoot(abbreviation, relativeRoot);
        if (!root) {
            SetLastError(ERROR_INVALID_PARAMETER);
            LogError(log, L"Invalid abbriviation");
            return false;
        }
        const std::wstring path = abbreviation == kRelativeRoot ? JoinKeyPath(relativePath, subkey) : subkey;
        LogInfo(log, L"%ls. '%ls\\%ls\\%ls'.", label, abbreviation.c_str(), subkey.c_str(), value.c_str());
        if (!LogRemoval(remover, remover.Remove(*root, path, value), log)) {
            LogInfo(log, L"%ls failed.", label);
        }
    } while (SetupFindNextLine(&line, &line));
    LogInfo(log, L"%ls for section '%ls' success.", label, registrySection.c_str());
    return true;
}

// Removes the values of every registry section the section's AddReg lines name.
void RemoveAddRegValues(HINF inf, const std::wstring& section, HKEY relativeRoot,
                        const std::wstring& relativePath, RegistryValueRemover& remover, InstallLog& log) {
    INFCONTEXT line{};
    if (!SetupFindFirstLineW(inf, section.c_str(), L"AddReg", &line)) {
        LogInfo(log, L"No files found '%ls.AddReg'", section.c_str());
        return;
    }
    std::vector<std::wstring> registrySections;
    do {
        if (!ReadNamedSections(line, registrySections)) {
            LogInfo(log, L"Error ignored.");
            continue;
        }
        for (const std::wstring& registrySection : registrySections) {
            if (!RemoveRegistrySection(inf, registrySection, relativeRoot, relativePath, remover, log)) {
                LogInfo(log, L"Error ignored.");
            }
        }
    } while (SetupFindNextMatchLineW(&line, L"AddReg", &line));
}

// Opens the service `name` for stopping or deleting. A service that does not
// exist is reported with `missingFormat` and is no error; without a handle the
// result is 0 or the error of the open.
DWORD OpenServiceToRemove(SC_HANDLE manager, const std::wstring& name, const wchar_t* missingFormat,
                          InstallLog& log, ServiceHandle& service) {
    service.reset(OpenServiceW(manager, name.c_str(), SERVICE_ALL_ACCESS));
    if (service) {
        return ERROR_SUCCESS;
    }
    DWORD error = GetLastError();
    if (error == ERROR_SERVICE_DOES_NOT_EXIST) {
        LogInfo(log, missingFormat, name.c_str());
        return ERROR_SUCCESS;
    }
    LogError(log, L"OpenService");
    return error;
}

} // namespace

void StopDeleteService(const std::wstring& name, unsigned flags, InstallLog& log) {
    LogInfo(log, L"StopDeleteService: %ls.", name.c_str());
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        LogError(log, L"OpenSCManager");
        return;
    }
    if ((flags & kFlagDeleteWithoutStop) != 0) {
        LogInfo(log, L"Don't stop driver");
    } else if (DWORD error = StopService(manager.get(), name, log); error != ERROR_SUCCESS) {
        SetLastError(error);
        LogError(log, L"StopDriver");
    }
    if (DWORD error = DeleteDriverService(manager.get(), name, log); error != ERROR_SUCCESS) {
        SetLastError(error);
        LogError(log, L"RemoveDriver");
    }
}

DWORD StopService(SC_HANDLE manager, const std::wstring& name, InstallLog& log) {
    ServiceHandle service;
    if (DWORD error = OpenServiceToRemove(manager, name, L"No service %ls to stop.", log, service);
        !service) {
        return error;
    }
    SERVICE_STATUS status{};
    if (ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
        LogInfo(log, L"Service %ls stopped.", name.c_str());
        return ERROR_SUCCESS;
    }
    DWORD error = GetLastError();
    switch (error) {
    case ERROR_SUCCESS:
    case ERROR_DEPENDENT_SERVICES_RUNNING:
    case ERROR_INVALID_SERVICE_CONTROL:
    case ERROR_SERVICE_CANNOT_ACCEPT_CTRL:
    case ERROR_SERVICE_NOT_ACTIVE:
        if (status.dwCurrentState != SERVICE_STOPPED) {
            LogInfo(log, L"Service %ls can't stop.", name.c_str());
            return ErrorOrInstallFailure(error);
        }
        LogInfo(log, L"Service %ls already stoped.", name.c_str());
        return ERROR_SUCCESS;
    default:
        LogError(log, L"ControlService(SERVICE_CONTROL_STOP)");
        return error;
    }
}

DWORD DeleteDriverService(SC_HANDLE manager, const std::wstring& name, InstallLog& log) {
    ServiceHandle service;
    if (DWORD error = OpenServiceToRemove(manager, name, L"No service %ls to remove.", log, service);
        !service) {
        return error;
    }
    if (!DeleteService(service.get())) {
        DWORD error = GetLastError();
        LogError(log, L"DeleteService");
        return error;
    }
    LogInfo(log, L"Service %ls deleted.", name.c_str());
    return ERROR_SUCCESS;
}

void RemoveQueuedFiles(const std::wstring& infPath, HINF inf, const std::wstring& section,
                       FileRemover& remover, InstallLog& log) {
    FileQueue queue(SetupOpenFileQueue());
    if (!queue) {
        LogError(log, L"SetupOpenFileQueue");
        return;
    }
    LogInfo(log, L"Build file queue.");
    const std::wstring sourceRoot = infPath.substr(0, infPath.find_last_of(L'\\') + 1);
    if (QueueCopySections(queue.get(), sourceRoot, inf, section, log) != ERROR_SUCCESS) {
        return;
    }
    ScanContext context{&remover, &log};
    DWORD result = 0;
    if (!SetupScanFileQueueW(queue.get(), SPQ_SCAN_USE_CALLBACK, nullptr, ScanQueueCallback, &context,
                             &result)) {
        LogError(log, L"SetupScanFileQueue");
    }
}

void RemoveInfRegistry(HINF inf, const std::wstring& installSection, const std::wstring& servicesSection,
                       RegistryValueRemover& remover, const std::wstring& serviceName, InstallLog& log) {
    RemoveAddRegValues(inf, installSection, nullptr, std::wstring(), remover, log);

    INFCONTEXT addService{};
    if (!SetupFindFirstLineW(inf, servicesSection.c_str(), kAddServiceKey, &addService)) {
        LogError(log, L"SetupFindFirstLine('%ls',AddService)", servicesSection.c_str());
        return;
    }
    std::wstring eventLogSection;
    if (!ReadInfField(addService, 4, eventLogSection) || eventLogSection.empty()) {
        return;
    }
    LogInfo(log, L"Found event log section: '%ls'", eventLogSection.c_str());
    std::wstring eventLogType;
    if (!ReadInfField(addService, 5, eventLogType) || eventLogType.empty()) {
        eventLogType = kDefaultEventLogType;
    }
    LogInfo(log, L"Found event log type: '%ls'", eventLogType.c_str());
    const std::wstring eventLogKey = kEventLogPath + eventLogType + L"\\" + serviceName;
    RemoveAddRegValues(inf, eventLogSection, HKEY_LOCAL_MACHINE, eventLogKey, remover, log);
}

void RemoveOemInf(const std::wstring& stagedPath, InstallLog& log) {
    const std::wstring fileName = stagedPath.substr(stagedPath.find_last_of(L'\\') + 1);
    LogInfo(log, L"Inf filename: '%ls'.", fileName.c_str());
    if (SetupUninstallOemInfFn uninstall = UninstallOemInfFunction(); uninstall != nullptr) {
        if (uninstall(fileName.c_str(), 0, nullptr)) {
            LogInfo(log, L"SetupUninstallOEMInf done.");
        } else {
            LogInfo(log, L"SetupUninstallOEMInf fail. 0x%X.", static_cast<unsigned>(GetLastError()));
        }
    }
    // Whatever the system did, the staged INF and its precompiled form go.
    const std::wstring extension = kInfExtension;
    if (stagedPath.size() < extension.size() ||
        stagedPath.compare(stagedPath.size() - extension.size(), extension.size(), extension) != 0) {
        SetLastError(ERROR_INVALID_NAME);
        LogError(log, L"Invalid OEMxxxx.inf file name");
        return;
    }
    if (DeleteOrDelayFile(stagedPath, log) == ERROR_SUCCESS) {
        LogInfo(log, L"Inf file '%ls' deleted.", stagedPath.c_str());
    } else {
        LogError(log, L"Couldn't delete inf file:'%ls'.", stagedPath.c_str());
    }
    const std::wstring pnfPath = stagedPath.substr(0, stagedPath.size() - extension.size()) + kPnfExtension;
    if (DeleteOrDelayFile(pnfPath, log) == ERROR_SUCCESS) {
        LogInfo(log, L"Pnf file '%ls' deleted.", pnfPath.c_str());
    } else {
        LogError(log, L"Couldn't delete pnf file:'%ls'.", pnfPath.c_str());
    }
}

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
