// KSUninstallW (rundll32): setuputils.dll,KSUninstallW [<component id> [<log file>]]
// removes a driver package installed by KSInstallW.
#include <cstdio>

#include "drivers/inf_location.h"
#include "drivers/remove_driver_package.h"
#include "exports.h"
#include "frame/command_line.h"
#include "frame/install_log.h"

namespace setuputils {
namespace {

void UninstallFromCommandLine(const wchar_t* commandLine) {
    CommandLineArguments arguments(commandLine);
    const wchar_t* logPath = arguments.at(2);
    FileLog log(logPath != nullptr ? _wfopen(logPath, L"wt") : nullptr);
    RemoveDriverPackage(arguments.at(1, kDefaultComponentId), std::nullopt, 0, log);
}

} // namespace
} // namespace setuputils

extern "C" void CALLBACK KSUninstallW(HWND /*window*/, HINSTANCE /*instance*/, LPWSTR commandLine,
                                      int /*show*/) {
    try {
        setuputils::UninstallFromCommandLine(commandLine);
    } catch (...) {
        // Nobody waits for an answer from a command line; the log says how far it got.
    }
}
