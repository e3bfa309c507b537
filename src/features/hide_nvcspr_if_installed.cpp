// HideNVCSPRIfInstalled (immediate): hides the provider feature "nvcspr" from
// the feature tree when it is already installed locally, so that a
// maintenance run cannot take it away.
#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "exports.h"
#include "features/hidden_provider_feature.h"
#include "frame/action_guard.h"

namespace setuputils {
namespace {

void HideWhenInstalled(MSIHANDLE session) {
    INSTALLSTATE installed = INSTALLSTATE_UNKNOWN;
    INSTALLSTATE action = INSTALLSTATE_UNKNOWN;
    if (MsiGetFeatureStateW(session, L"nvcspr", &installed, &action) == ERROR_SUCCESS &&
        installed == INSTALLSTATE_LOCAL) {
        HideProviderFeature(session);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI HideNVCSPRIfInstalled(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"HideNVCSPRIfInstalled",
                                               setuputils::HideWhenInstalled);
}
