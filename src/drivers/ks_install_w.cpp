// KSInstallW (rundll32): setuputils.dll,KSInstallW <inf> [<component id> [<log file>]]
// installs a driver package; a failed installation is undone.
#include <cstdio>

#include "drivers/inf_location.h"
#include "drivers/install_service.h"
#include "drivers/remove_driver_package.h"
#include "exports.h"
#include "frame/command_line.h"
#include "frame/install_log.h"

namespace setuputils {
namespace {

void InstallFromCommandLine(HWND window, const wchar_t* commandLine) {
    CommandLineArguments arguments(commandLine);
    if (arguments.count() < 1) {
        return;
    }
    const wchar_t* logPath = arguments.at(3);
    FileLog log(logPath != nullptr ? _wfopen(logPath, L"wt") : nullptr);
    const std::wstring componentId = arguments.at(2, kDefaultComponentId);
    DWORD result = InstallService(arguments.at(1), componentId, window, 0, log);
    if (result != ERROR_SUCCESS) {
        SetLastError(result);
        LogError(log, L"InstallService: 0x%X", static_cast<unsigned>(result));
        RemoveDriverPackage(componentId, std::nullopt, 0, log);
    }
}

} // namespace
} // namespace setuputils

extern "C" void CALLBACK KSInstallW(HWND window, HINSTANCE /*instance*/, LPWSTR commandLine, int /*show*/) {
    try {
        setuputils::InstallFromCommandLine(window, commandLine);
    } catch (...) {
        // Nobody waits for an answer from a command line; the log says how far it got.
    }
}
