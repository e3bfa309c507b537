#include "registry/registry_status.h"

namespace setuputils {
namespace {

// Registry results, as numbers: this file also builds where no registry exists.
constexpr long kSuccess = 0;
constexpr long kFileNotFound = 2;
constexpr long kAccessDenied = 5;
constexpr long kNotEnoughMemory = 8;
constexpr long kInvalidParameter = 87;
constexpr long kMoreData = 234;
constexpr long kNoMoreItems = 259;

} // namespace

RegistryStatus MapRegistryStatus(long result) {
    switch (result) {
    case kSuccess:
    case kMoreData:
        return kRegistryOk;
    case kFileNotFound:
    case kNoMoreItems:
        return kRegistryNotFound;
    case kAccessDenied:
        return kRegistryAccessDenied;
    case kNotEnoughMemory:
        return kRegistryNoMemory;
    case kInvalidParameter:
        return kRegistryBadArgument;
    default:
        return kRegistryFailure;
    }
}

RegistryStatus MapNtStatus(long status) {
    return status == 0 ? kRegistryOk : kRegistryFailure;
}

} // namespace setuputils
