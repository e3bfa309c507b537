// SetRegistryLow (deferred): labels the per-user settings tree low-integrity,
// so that low-integrity processes can write their settings. Never fails.
#include <windows.h>
#include <aclapi.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "profiles/access_rights.h"

namespace setuputils {
namespace {

constexpr DWORD kFirstVersionWithLabels = 6;

void LabelSettingsTreeLow() {
    if (GetNtVersion().major < kFirstVersionWithLabels) {
        return;
    }
    LocalMemory descriptor = LowIntegrityLabelDescriptor();
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL label = nullptr;
    if (!descriptor || !GetSecurityDescriptorSacl(descriptor.get(), &present, &label, &defaulted)) {
        return;
    }
    SetNamedSecurityInfoW(const_cast<wchar_t*>(kUserSettingsObject), SE_REGISTRY_KEY,
                          LABEL_SECURITY_INFORMATION, nullptr, nullptr, nullptr, label);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI SetRegistryLow(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"SetRegistryLow", setuputils::LabelSettingsTreeLow);
}
