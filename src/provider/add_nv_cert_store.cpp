// AddNVCertStore (deferred): registers the provider's trusted system store for
// the local machine, and gives the key of the CryptoAPI localized names the
// owner and access list of its parent key, so that the provider may add its
// names there. Every step runs whatever the one before did; failures are
// logged, and the closing message comes in every case. Never fails.
#include <string>
#include <utility>

#include <windows.h>
#include <wincrypt.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "profiles/access_rights.h"
#include "provider/certificate_store.h"

namespace setuputils {
namespace {

constexpr wchar_t kLocalizedNameKey[] =
    L"SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 0\\CryptDllFindLocalizedName";
constexpr wchar_t kLocalizedNamesSubkey[] = L"\\LocalizedNames";
// Each descriptor read from the parent key gets a buffer of this size.
constexpr DWORD kDescriptorBytes = 10000;

constexpr wchar_t kRegisterFailed[] = L"CertRegisterSystemStore() fail";
constexpr wchar_t kRightsFailed[] = L"get_rights() fail";
constexpr wchar_t kRightsChanged[] = L"Registry rights was changed";

// The parent key's owner and access list, each in a descriptor of its own;
// a part that could not be read stays empty.
struct ParentRights {
    LocalMemory owner;
    LocalMemory dacl;
};

bool ReadDescriptor(HKEY key, SECURITY_INFORMATION part, LocalMemory& descriptor) {
    LocalMemory buffer(LocalAlloc(LPTR, kDescriptorBytes));
    DWORD size = kDescriptorBytes;
    if (!buffer || RegGetKeySecurity(key, part, buffer.get(), &size) != ERROR_SUCCESS) {
        return false;
    }
    descriptor = std::move(buffer);
    return true;
}

bool ReadParentRights(ParentRights& rights) {
    RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLocalizedNameKey, 0, KEY_ALL_ACCESS, key.put()) != ERROR_SUCCESS) {
        return false;
    }
    const bool owner = ReadDescriptor(key.get(), OWNER_SECURITY_INFORMATION, rights.owner);
    const bool dacl = ReadDescriptor(key.get(), DACL_SECURITY_INFORMATION, rights.dacl);
    return owner && dacl;
}

// Enables the right to take ownership of keys in the process token, for good.
// Returns the last error: 0, or why the token or the privilege could not be had
// (ERROR_NOT_ALL_ASSIGNED when the token does not hold it).
DWORD EnableTakeOwnership() {
    TokenHandle token;
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    SetLastError(ERROR_SUCCESS);
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, token.put()) ||
        !LookupPrivilegeValueW(nullptr, SE_TAKE_OWNERSHIP_NAME, &privileges.Privileges[0].Luid)) {
        return GetLastError();
    }
    AdjustTokenPrivileges(token.get(), FALSE, &privileges, sizeof(privileges), nullptr, nullptr);
    return GetLastError();
}

void AddTrustedStore(MSIHANDLE session) {
    if (!CertRegisterSystemStore(kTrustedStoreName, CERT_SYSTEM_STORE_LOCAL_MACHINE, nullptr, nullptr)) {
        ReportInfo(session, kRegisterFailed);
    }
    ParentRights rights;
    if (!ReadParentRights(rights)) {
        ReportInfo(session, kRightsFailed);
    }
    if (EnableTakeOwnership() != ERROR_SUCCESS) {
        ReportInfo(session, kRightsFailed);
    }
    const std::wstring localizedNames = std::wstring(kLocalizedNameKey) + kLocalizedNamesSubkey;
    if (SetKeyOwnerAndDacl(localizedNames, rights.owner.get(), rights.dacl.get()) != ERROR_SUCCESS) {
        ReportInfo(session, kRightsFailed);
    }
    // Said after a failure too.
    ReportInfo(session, kRightsChanged);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI AddNVCertStore(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"AddNVCertStore", setuputils::AddTrustedStore);
}
