// Removing what a driver package's INF installed: the copied files, the
// registry values and the staged INF itself.
#include <optional>
#include <vector>

#include "drivers/inf_file.h"
#include "drivers/remove_driver_package.h"
#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr wchar_t kEventLogPath[] = L"System\\CurrentControlSet\\Services\\EventLog\\";
constexpr wchar_t kDefaultEventLogType[] = L"System";
constexpr wchar_t kInfExtension[] = L".inf";
constexpr wchar_t kPnfExtension[] = L".pnf";
constexpr wchar_t kRelativeRoot[] = L"HKR";

using SetupUninstallOemInfFn = BOOL(WINAPI*)(PCWSTR, DWORD, PVOID);

// Resolved once per process; the library takes no locks, and a second
// resolution on another thread would find the same address.
SetupUninstallOemInfFn UninstallOemInfFunction() {
    static SetupUninstallOemInfFn function =
        FindSetupApiFunction<SetupUninstallOemInfFn>("SetupUninstallOEMInfW");
    return function;
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

} // namespace

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

} // namespace setuputils
