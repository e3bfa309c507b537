// Text of a driver package INF for the tests and the sample package.
#pragma once

#include <string>

namespace harness {

struct DriverInfOptions {
    // Named by the first AddService line; no AddService line when empty.
    std::string service{};
    // Manufacturer -> models -> install section "Driver_Install"; without, "DefaultInstall".
    bool manufacturer = true;
    // Copies <service>.sys from beside the INF to the drivers folder (%12%).
    bool copyFiles = false;
    // Values under HKLM\SOFTWARE\SetupUtilsTest\<service> and, through an
    // event-log section, HKR values under the service's event-log key.
    bool addReg = false;
    // Further lines of the install section, e.g. "DelFiles=...".
    std::string extraInstallLines{};
};

std::string DriverInf(const DriverInfOptions& options);
// A minimal INF: install section from the first model; `service` in its AddService line.
std::string DriverInf(const char* service);

} // namespace harness
