// InitializeHardRngUser (deferred, in the user's context; CustomActionData:
// "caption/installer dialog title/message"): unless the current user's random
// seed is initialised already, asks the package's provider to initialise and
// use its hardware random-number generator, with the installer's dialog as
// the owner of whatever the provider shows. When the provider refuses, a
// warning box with the given caption and message tells the user; the
// installation goes on. It fails only when no provider context is available.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "frame/windows_version.h"
#include "provider/warning_box.h"
#include "rng/random_seed.h"
#include "rng/seeding_rules.h"

namespace setuputils {
namespace {

constexpr wchar_t kAction[] = L"InitializeHardRngUser";
constexpr wchar_t kFailureLabel[] = L"InitializeHardRng";
// The provider type of the package's own provider.
constexpr DWORD kProviderType = 80;
constexpr DWORD kClientWindowParam = 1;    // PP_CLIENT_HWND
constexpr DWORD kUseHardwareRngParam = 38; // PP_USE_HARDWARE_RNG

bool PredatesWindows8() {
    const NtVersion version = GetNtVersion();
    return version.major < 6 || (version.major == 6 && version.minor < 2);
}

// The installer's dialog of that title, or else any dialog.
HWND FindOwnerWindow(const std::wstring& title) {
    HWND window = FindWindowW(kDialogClass, title.c_str());
    return window != nullptr ? window : FindWindowW(kDialogClass, nullptr);
}

UINT InitializeForCurrentUser(MSIHANDLE session) {
    if (IsCurrentUserSeeded()) {
        return ERROR_SUCCESS;
    }
    if (PredatesWindows8()) {
        ApplyLegacyAdvapiPatchOnce();
    }
    CryptContext provider;
    if (!CryptAcquireContextW(provider.put(), nullptr, nullptr, kProviderType, CRYPT_VERIFYCONTEXT)) {
        ReportActionError(session, kAction, kFailureLabel, GetLastError());
        return ERROR_INSTALL_FAILURE;
    }
    std::wstring data;
    GetPropertyString(session, L"CustomActionData", data);
    const SeedingWarning warning = SplitSeedingWarning(data);

    HWND owner = FindOwnerWindow(warning.ownerTitle);
    // Puts the provider's own dialogs over the installer's.
    CryptSetProvParam(0, kClientWindowParam, reinterpret_cast<const BYTE*>(&owner), 0);
    if (!CryptSetProvParam(provider.get(), kUseHardwareRngParam, nullptr, 0)) {
        ShowWarning(owner, warning.message, warning.caption);
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI InitializeHardRngUser(MSIHANDLE session) {
    return setuputils::GuardAction(session, setuputils::kAction, setuputils::InitializeForCurrentUser);
}
