// DelNVCryptographyKey (deferred): removes the provider's configuration key
// and its parent when they are left empty of subkeys. Never fails.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"

namespace setuputils {
namespace {

// Innermost first: RegDeleteKeyW deletes only a key without subkeys.
constexpr const wchar_t* kConfigurationKeys[] = {
    L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion",
    L"SOFTWARE\\Norvane\\Cryptography",
};

void DeleteEmptyConfigurationKeys() {
    for (const wchar_t* path : kConfigurationKeys) {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, path);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI DelNVCryptographyKey(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"DelNVCryptographyKey",
                                               setuputils::DeleteEmptyConfigurationKeys);
}
