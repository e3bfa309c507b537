// KSInstInstall (deferred; KSInstall and KSInstall64 in the package): installs
// the driver package named by its driver action data.
#include <windows.h>
#include <msiquery.h>

#include "drivers/install_service.h"
#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/install_log.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr DWORD kSystemMessageFlags =
    FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
constexpr DWORD kUserDefaultLanguage = 0x400;

// Package error 555: the driver installation failed with `code`, described by the system.
void ReportDriverInstallError(MSIHANDLE session, DWORD code) {
    wchar_t* text = nullptr;
    FormatMessageW(kSystemMessageFlags, nullptr, code, kUserDefaultLanguage,
                   reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    LocalMemory owner(text);
    PostMessageRecord(session, kMessageError, nullptr, kErrorDriverInstall, static_cast<int>(code),
                      text != nullptr ? text : L"");
}

UINT InstallDriverPackage(MSIHANDLE session) {
    LoadLibraryW(L"setupapi.dll");
    SessionLog log(session);
    std::optional<DriverActionData> data = ParseDriverActionData(session, false);
    if (!data) {
        return ERROR_INSTALL_FAILURE;
    }
    DWORD result =
        InstallService(data->infPath, data->componentId, nullptr, static_cast<unsigned>(data->flags), log);
    ReportProgress(session, static_cast<int>(data->progressTicks));
    if (result == ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    ReportDriverInstallError(session, result);
    return ERROR_INSTALL_FAILURE;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI KSInstInstall(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"KSInstInstall", setuputils::InstallDriverPackage);
}
