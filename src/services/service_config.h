// Service manager steps shared by the service actions.
#pragma once

#include <windows.h>

#include "frame/handles.h"

namespace setuputils {

// Reads the configuration of `service` into a zero-filled local allocation
// of the size the manager asks for. Returns 0, or the error of the size
// probe, the allocation or the query; `config` then stays empty.
DWORD ReadServiceConfig(SC_HANDLE service, LocalMemory& config);

inline const QUERY_SERVICE_CONFIGW& ServiceConfig(const LocalMemory& config) {
    return *static_cast<const QUERY_SERVICE_CONFIGW*>(config.get());
}

// Stops `service` when it runs and waits while it is stopping, at most
// about ten seconds. True when it ran and should be started again: it is
// no longer stopping, or the stop request or a later status query failed.
bool StopToRestartLater(SC_HANDLE service);

} // namespace setuputils
