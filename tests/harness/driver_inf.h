// Text of a driver package INF for the tests and the sample package.
#pragma once

#include <string>

namespace harness {

struct DriverInfOptions {
    std::string service{}; // of the AddService line; none when empty
    // Install section "Driver_Install" through manufacturer and model; else "DefaultInstall".
    bool manufacturer = true;
    bool copyFiles = false; // copies <service>.sys from beside the INF to the drivers folder
};

std::string DriverInf(const DriverInfOptions& options);

} // namespace harness
