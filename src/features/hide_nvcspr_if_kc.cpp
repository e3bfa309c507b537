// HideNVCSPRIfKC (immediate): hides the provider feature "nvcspr" from the
// feature tree, whatever its state.
#include <windows.h>
#include <msi.h>

#include "exports.h"
#include "features/hidden_provider_feature.h"
#include "frame/action_guard.h"

extern "C" UINT WINAPI HideNVCSPRIfKC(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"HideNVCSPRIfKC", setuputils::HideProviderFeature);
}
