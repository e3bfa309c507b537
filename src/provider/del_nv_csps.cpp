// DelNVCSPs (deferred): deletes the provider's old entries from the system's
// provider list and the provider type the old editions registered, each with
// its whole subtree. Keys that are not there, or cannot be deleted, are skipped.
#include <windows.h>
#include <shlwapi.h>

#include "exports.h"
#include "frame/action_guard.h"

namespace setuputils {
namespace {

// In this order. The first entry is deleted twice; that is harmless.
constexpr const wchar_t* kOldProviderKeys[] = {
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane Cryptographic Service Provider",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane Cryptographic Service Provider",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane GOST R 34.10-94 Cryptographic Service "
    L"Provider",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane GOST R 34.10-2001 Cryptographic Service "
    L"Provider",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane SmartCard CSP",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane GOST R 34.10-94 KC1 CSP",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane GOST R 34.10-2001 KC1 CSP",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane GOST R 34.10-94 KC2 CSP",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane GOST R 34.10-2001 KC2 CSP",
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 071",
};

void DeleteOldProviderKeys() {
    for (const wchar_t* key : kOldProviderKeys) {
        SHDeleteKeyW(HKEY_LOCAL_MACHINE, key);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI DelNVCSPs(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"DelNVCSPs",
                                               [] { setuputils::DeleteOldProviderKeys(); });
}
