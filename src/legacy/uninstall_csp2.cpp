// UninstallCSP2 (immediate): removes the provider of the previous product
// generation. Its uninstaller, found by the package's search
// ("UNINSTALLSTRINGCSP2"), runs silently with the response file of the
// Binary row "uninstall.csp.iss"; pending file renames survive the run. Any
// failure fails the installation with 1603.
#include "exports.h"
#include "legacy/previous_version.h"

namespace setuputils {
namespace {

constexpr PreviousComponent kPreviousProvider = {
    .action = L"UninstallCSP2",
    .property = L"UNINSTALLSTRINGCSP2",
    .propertyFailure = L"MsiGetProperty UNINSTALLSTRINGCSP2 fail ",
    .name = L"csp",
    .failure = L"Uninstall2 fail",
    .returnsRemovalCode = false,
};

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI UninstallCSP2(MSIHANDLE session) {
    return setuputils::RemovePreviousComponent(session, setuputils::kPreviousProvider);
}
