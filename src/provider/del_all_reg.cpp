// DelAllReg (deferred, at removal): deletes the provider's machine settings
// with everything below them and unregisters its trusted system store. A
// store that cannot be unregistered is logged. Never fails.
#include <windows.h>
#include <wincrypt.h>
#include <msiquery.h>
#include <shlwapi.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "provider/certificate_store.h"

namespace setuputils {
namespace {

constexpr wchar_t kSettingsKey[] = L"SOFTWARE\\Norvane\\Settings";
constexpr wchar_t kUnregisterFailed[] = L"CertUnregisterSystemStore() fail";

void DeleteSettingsAndStore(MSIHANDLE session) {
    // Settings that are gone already are no failure.
    SHDeleteKeyW(HKEY_LOCAL_MACHINE, kSettingsKey);
    if (!CertUnregisterSystemStore(kTrustedStoreName, CERT_SYSTEM_STORE_LOCAL_MACHINE)) {
        ReportInfo(session, kUnregisterFailed);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI DelAllReg(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"DelAllReg", setuputils::DeleteSettingsAndStore);
}
