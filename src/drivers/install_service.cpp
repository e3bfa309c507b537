#include "drivers/install_service.h"

#include "drivers/inf_file.h"
#include "drivers/inf_location.h"
#include "frame/handles.h"

namespace setuputils {
namespace {

constexpr DWORD kStagedPathChars = MAX_PATH;
constexpr wchar_t kNoServiceName[] = L"(null)";

bool CallSetupCopyOemInf(const InfPath& inf, std::wstring& staged, DWORD& required) {
    required = 0;
    BOOL copied = SetupCopyOEMInfW(inf.full.c_str(), inf.directory.c_str(), SPOST_PATH, 0, staged.data(),
                                   static_cast<DWORD>(staged.size()), &required, nullptr);
    if (copied) {
        staged.resize(wcsnlen(staged.c_str(), staged.size()));
    }
    return copied != FALSE;
}

// Staging, the location record and the install section; the services follow.
DWORD StageAndInstall(HINF inf, const InfPath& path, const std::wstring& componentId, HWND owner,
                      const std::wstring& installSection, InstallLog& log) {
    std::optional<std::wstring> staged = CopyOemInf(path, log);
    if (!staged) {
        return LastErrorOrInstallFailure();
    }
    LogInfo(log, L"CopyOemInf success: %ls", staged->c_str());

    staged = CheckStagedInf(path, *staged, log);
    if (!staged) {
        return LastErrorOrInstallFailure();
    }

    LSTATUS saved = SaveInfLocation(componentId, *staged);
    if (saved != ERROR_SUCCESS) {
        SetLastError(static_cast<DWORD>(saved));
        LogError(log, L"Can't save inf file location");
        return ErrorOrInstallFailure(static_cast<DWORD>(saved));
    }
    LogInfo(log, L"SaveInfFileLocation success");

    if (!SetupInstallFromInfSectionW(owner, inf, installSection.c_str(), kInstallSectionOperations, nullptr,
                                     path.directory.c_str(), 0, InstallQueueCallback, &log, nullptr,
                                     nullptr)) {
        return LastErrorOrInstallFailure();
    }
    LogInfo(log, L"SetupInstallFromInfSection success");
    return ERROR_SUCCESS;
}

DWORD InstallAndStartService(HINF inf, const std::wstring& servicesSection, const std::wstring& service,
                             unsigned flags, InstallLog& log) {
    if (!SetupInstallServicesFromInfSectionW(inf, servicesSection.c_str(), 0)) {
        return LastErrorOrInstallFailure();
    }
    LogInfo(log, L"SetupInstallServicesFromInfSection success");
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        return LastErrorOrInstallFailure();
    }
    LogInfo(log, L"OpenSCManager success");
    if ((flags & kFlagDoNotStart) == 0) {
        DWORD started = StartDriver(manager.get(), service, log);
        if (started != ERROR_SUCCESS) {
            return started;
        }
        LogInfo(log, L"StartDriver success");
    }
    return ERROR_SUCCESS;
}

} // namespace

std::optional<std::wstring> CopyOemInf(const InfPath& inf, InstallLog& log) {
    std::wstring staged(kStagedPathChars, L'\0');
    DWORD required = 0;
    LogInfo(log, L"CopyOemInf: Going to call SetupCopyOEMInf (1-st time)");
    bool copied = CallSetupCopyOemInf(inf, staged, required);
    if (!copied && GetLastError() == ERROR_INSUFFICIENT_BUFFER && required > 0) {
        staged.assign(required, L'\0');
        LogInfo(log, L"CopyOemInf: Going to call SetupCopyOEMInf (2-nd time)");
        copied = CallSetupCopyOemInf(inf, staged, required);
    }
    if (!copied) {
        LogError(log, L"SetupCopyOEMInf");
        return std::nullopt;
    }
    return staged;
}

std::optional<std::wstring> CheckStagedInf(const InfPath& inf, const std::wstring& staged, InstallLog& log) {
    InfHandle copy(SetupOpenInfFileW(staged.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (copy) {
        LogInfo(log, L"SetupOpenInfFile success: %ls", staged.c_str());
        return staged;
    }
    LogInfo(log, L"SetupOpenInfFile failure: %ls", staged.c_str());
    // Emptied, the damaged copy no longer passes for the package's INF and is staged anew.
    if (!FileHandle(CreateFileW(staged.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_NORMAL, nullptr))) {
        return std::nullopt;
    }
    std::optional<std::wstring> restaged = CopyOemInf(inf, log);
    if (restaged) {
        LogInfo(log, L"CopyOemInf second call success: %ls", restaged->c_str());
    }
    return restaged;
}

UINT CALLBACK InstallQueueCallback(PVOID context, UINT notification, UINT_PTR param1, UINT_PTR param2) {
    auto& log = *static_cast<InstallLog*>(context);
    const auto* paths = reinterpret_cast<const FILEPATHS_W*>(param1);
    switch (notification) {
    case SPFILENOTIFY_STARTQUEUE:
    case SPFILENOTIFY_ENDQUEUE:
    case SPFILENOTIFY_NEEDMEDIA:
        return FILEOP_DOIT;
    case SPFILENOTIFY_STARTSUBQUEUE:
        log.StartCopy(static_cast<int>(param2));
        return FILEOP_DOIT;
    case SPFILENOTIFY_ENDSUBQUEUE:
        log.EndCopy();
        return FILEOP_DOIT;
    case SPFILENOTIFY_STARTCOPY:
        log.Trace(L"Start copy", *paths);
        return FILEOP_DOIT;
    case SPFILENOTIFY_ENDCOPY:
        log.Trace(L"End copy", *paths);
        return FILEOP_DOIT;
    case SPFILENOTIFY_COPYERROR:
        log.Trace(L"Error copy", *paths);
        SetLastError(ERROR_CAN_NOT_COMPLETE);
        return FILEOP_ABORT;
    default:
        // Deletes and renames are not part of a driver package's installation.
        SetLastError(ERROR_CAN_NOT_COMPLETE);
        return FILEOP_ABORT;
    }
}

DWORD StartDriver(SC_HANDLE manager, const std::wstring& name, InstallLog& log) {
    ServiceHandle service(OpenServiceW(manager, name.c_str(), SERVICE_ALL_ACCESS));
    if (!service) {
        DWORD error = GetLastError();
        LogError(log, L"OpenService");
        return ErrorOrInstallFailure(error);
    }
    SERVICE_STATUS status{};
    if (QueryServiceStatus(service.get(), &status) && status.dwCurrentState == SERVICE_RUNNING) {
        ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    }
    if (!StartServiceW(service.get(), 0, nullptr)) {
        DWORD error = GetLastError();
        if (error != ERROR_SERVICE_ALREADY_RUNNING) {
            LogError(log, L"StartService");
            return ErrorOrInstallFailure(error);
        }
    }
    return ERROR_SUCCESS;
}

DWORD InstallService(const std::wstring& infPath, const std::wstring& componentId, HWND owner, unsigned flags,
                     InstallLog& log) {
    LogInfo(log, L"InstallService start.");
    InfPath path;
    if (!ResolveInfPath(infPath, log, path)) {
        return ERROR_INSTALL_FAILURE;
    }
    LogInfo(log, L"FullFileName:%ls", path.full.c_str());
    LogInfo(log, L"FullPath:%ls", path.directory.c_str());
    LogInfo(log, L"ComponentID:%ls", componentId.c_str());

    InfHandle inf(SetupOpenInfFileW(path.full.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) {
        return ERROR_INVALID_HANDLE;
    }
    LogInfo(log, L"SetupOpenInfFile success");

    const std::wstring installSection = InstallSectionOrDefault(inf.get(), log);
    const std::wstring servicesSection = installSection + kServicesSectionSuffix;
    const bool hasService = (flags & kFlagNoService) == 0;
    std::wstring service;
    if (hasService) {
        switch (FindServiceName(inf.get(), servicesSection, service)) {
        case InfLookup::Found:
            LogInfo(log, L"Found Service: %ls", service.c_str());
            break;
        case InfLookup::LineMissing: {
            DWORD error = GetLastError();
            LogInfo(log, L"SetupFindFirstLine('%ls',AddService)", servicesSection.c_str());
            return ErrorOrInstallFailure(error);
        }
        case InfLookup::FieldUnreadable: {
            DWORD error = GetLastError();
            LogError(log, L"SetupGetStringField('%ls',AddService)", servicesSection.c_str());
            return ErrorOrInstallFailure(error);
        }
        }
    }

    DWORD status = StageAndInstall(inf.get(), path, componentId, owner, installSection, log);
    if (status == ERROR_SUCCESS && hasService) {
        status = InstallAndStartService(inf.get(), servicesSection, service, flags, log);
    }
    if (status != ERROR_SUCCESS) {
        return status;
    }
    LogInfo(log, L"Install driver %ls success.", hasService ? service.c_str() : kNoServiceName);
    return ERROR_SUCCESS;
}

} // namespace setuputils
