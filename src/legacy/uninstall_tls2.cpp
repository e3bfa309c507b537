// UninstallTLS2 (immediate): removes the TLS component of the previous
// product generation. Its uninstaller, found by the package's search
// ("UNINSTALLSTRINGTLS2"), runs silently with the response file of the
// Binary row "uninstall.tls.iss"; pending file renames survive the run. A
// failure fails the installation with the removal's own code, not with 1603.
#include "exports.h"
#include "legacy/previous_version.h"

namespace setuputils {
namespace {

constexpr PreviousComponent kPreviousTlsComponent = {
    .action = L"UninstallTLS2",
    .property = L"UNINSTALLSTRINGTLS2",
    .propertyFailure = L"MsiGetProperty UNINSTALLSTRINGTLS2 fail ",
    .name = L"tls",
    .failure = L"Uninstall2 FAIL",
    .returnsRemovalCode = true,
};

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI UninstallTLS2(MSIHANDLE session) {
    return setuputils::RemovePreviousComponent(session, setuputils::kPreviousTlsComponent);
}
