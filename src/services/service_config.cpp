#include "services/service_config.h"

#include <utility>

namespace setuputils {
namespace {

constexpr int kStopPolls = 104;
constexpr DWORD kStopPollMilliseconds = 100;

} // namespace

DWORD ReadServiceConfig(SC_HANDLE service, LocalMemory& config) {
    DWORD size = 0;
    if (!QueryServiceConfigW(service, nullptr, 0, &size) && GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return GetLastError();
    }
    LocalMemory buffer(LocalAlloc(LPTR, size));
    if (!buffer) {
        return GetLastError();
    }
    if (!QueryServiceConfigW(service, static_cast<QUERY_SERVICE_CONFIGW*>(buffer.get()), size, &size)) {
        return GetLastError();
    }
    config = std::move(buffer);
    return ERROR_SUCCESS;
}

bool StopToRestartLater(SC_HANDLE service) {
    SERVICE_STATUS status{};
    if (!QueryServiceStatus(service, &status) || status.dwCurrentState != SERVICE_RUNNING) {
        return false;
    }
    // A refused stop request leaves the state as it was and the service is
    // started again all the same (which finds it running).
    ControlService(service, SERVICE_CONTROL_STOP, &status);
    for (int polls = 0; status.dwCurrentState == SERVICE_STOP_PENDING; ++polls) {
        if (polls == kStopPolls) {
            return false;
        }
        Sleep(kStopPollMilliseconds);
        if (!QueryServiceStatus(service, &status)) {
            break;
        }
    }
    return true;
}

} // namespace setuputils
