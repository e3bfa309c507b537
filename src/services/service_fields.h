// Decisions of the service actions that need nothing from the system: the
// fields of their CustomActionData, the type and start type of the host
// service, and what turning a shared-host service into one of its own
// process changes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace setuputils {

// Service types and start types as the service control manager numbers them.
inline constexpr std::uint32_t kServiceOwnProcess = 0x10;
inline constexpr std::uint32_t kServiceShareProcess = 0x20;
inline constexpr std::uint32_t kServiceInteractive = 0x100;
inline constexpr std::uint32_t kServiceAutoStart = 2;
inline constexpr std::uint32_t kServiceDemandStart = 3;

// CustomActionData of MsiCreateService: "name/display name/non-interactive flag/local group".
struct CreateServiceData {
    std::wstring name;
    std::wstring displayName;
    std::wstring nonInteractive; // any text: not interactive
    std::wstring group;          // empty: no local group
};

// Splits at the first three "/": the last field present keeps whatever
// follows, "/" included. Fields that are not there are empty.
CreateServiceData SplitCreateServiceData(std::wstring_view data);

// CustomActionData of MsiCreateServiceRollback: "name/local group".
struct RemoveServiceData {
    std::wstring name;
    std::wstring group;
};

// The name up to the first "/", the group after it.
RemoveServiceData SplitRemoveServiceData(std::wstring_view data);

// The helper started on request ("nvcsphclm", exactly so) starts on demand;
// any other host service starts automatically.
std::uint32_t HostServiceStartType(std::wstring_view name);

// Own process; interactive unless the non-interactive flag has text.
std::uint32_t HostServiceType(std::wstring_view nonInteractive);

// The type with the process bits replaced by "own process"; the other bits stay.
std::uint32_t OwnProcessType(std::uint32_t type);

// A binary path and service type to write back.
struct ServiceReconfiguration {
    std::wstring binaryPath;
    std::uint32_t type = 0;
};

// What makes a service run in a process of its own: a path holding " -p"
// (the protected-host option) is cut at its first one, and the type becomes
// own-process. Nothing when the path has no " -p" and the service is not
// of the shared kind.
std::optional<ServiceReconfiguration> UnprotectedConfiguration(std::wstring_view binaryPath,
                                                               std::uint32_t type);

// Boot, system and disabled services are to start automatically; automatic
// and demand start stay as they are.
bool NeedsAutomaticStart(std::uint32_t startType);

} // namespace setuputils
