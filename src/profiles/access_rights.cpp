#include "profiles/access_rights.h"

#include <aclapi.h>
#include <sddl.h>

#include <vector>

#include "registry/registry_library.h"

namespace setuputils {
namespace {

constexpr wchar_t kRegistryReadCapability[] = L"registryRead";

struct UnicodeText {
    USHORT length;
    USHORT maximumLength;
    PWSTR buffer;
};
using RtlDeriveCapabilitySidsFromNameFn = LONG(NTAPI*)(UnicodeText*, PSID, PSID);

AllocatedSid WellKnownSid(SID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD second = 0) {
    AllocatedSid sid;
    if (!AllocateAndInitializeSid(&authority, count, first, second, 0, 0, 0, 0, 0, 0, sid.put())) {
        sid.reset();
    }
    return sid;
}

AllocatedSid AllApplicationPackages() {
    return WellKnownSid(SECURITY_APP_PACKAGE_AUTHORITY, 2, 2, 1);
}
AllocatedSid CreatorOwner() {
    return WellKnownSid(SECURITY_CREATOR_SID_AUTHORITY, 1, SECURITY_CREATOR_OWNER_RID);
}
AllocatedSid LocalSystem() {
    return WellKnownSid(SECURITY_NT_AUTHORITY, 1, SECURITY_LOCAL_SYSTEM_RID);
}

// The capability SID (not the capability group SID) of "registryRead", when
// the system can derive it.
bool DeriveRegistryReadCapability(std::vector<BYTE>& capability) {
    HMODULE ntdll = GetModuleHandleW(L"ntdll");
    auto derive = ntdll != nullptr
                      ? reinterpret_cast<RtlDeriveCapabilitySidsFromNameFn>(
                            reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlDeriveCapabilitySidsFromName")))
                      : nullptr;
    if (derive == nullptr) {
        return false;
    }
    std::wstring name = kRegistryReadCapability;
    UnicodeText text{static_cast<USHORT>(name.size() * sizeof(wchar_t)),
                     static_cast<USHORT>(name.size() * sizeof(wchar_t)), name.data()};
    std::vector<BYTE> group(SECURITY_MAX_SID_SIZE);
    capability.assign(SECURITY_MAX_SID_SIZE, 0);
    return derive(&text, group.data(), capability.data()) >= 0 && IsValidSid(capability.data());
}

EXPLICIT_ACCESS_W EntryFor(PSID sid, DWORD rights, DWORD inheritance) {
    EXPLICIT_ACCESS_W entry{};
    entry.grfAccessPermissions = rights;
    entry.grfAccessMode = SET_ACCESS;
    entry.grfInheritance = inheritance;
    entry.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    entry.Trustee.TrusteeType = TRUSTEE_IS_USER;
    entry.Trustee.ptstrName = static_cast<LPWSTR>(sid);
    return entry;
}

} // namespace

bool HasAppContainers(NtVersion version) {
    return version.major > 6 || (version.major == 6 && version.minor >= 2);
}

bool HasRegistryReadCapability(NtVersion version) {
    return version.major > 6 || (version.major == 6 && version.minor >= 3);
}

LocalMemory BuildSettingsKeyAcl(NtVersion version) {
    AllocatedSid packages;
    std::vector<BYTE> capability;
    std::vector<EXPLICIT_ACCESS_W> entries;
    if (HasAppContainers(version)) {
        packages = AllApplicationPackages();
        if (!packages) {
            return LocalMemory();
        }
        entries.push_back(EntryFor(packages.get(), KEY_ALL_ACCESS, CONTAINER_INHERIT_ACE));
    }
    if (HasRegistryReadCapability(version) && DeriveRegistryReadCapability(capability)) {
        entries.push_back(EntryFor(capability.data(), KEY_ALL_ACCESS, CONTAINER_INHERIT_ACE));
    }
    AllocatedSid creator = CreatorOwner();
    AllocatedSid system = LocalSystem();
    std::wstring userText;
    LocalMemory user;
    if (!creator || !system || CurrentUserSidText(userText) != kRegistryOk ||
        !ConvertStringSidToSidW(userText.c_str(), reinterpret_cast<PSID*>(user.put()))) {
        return LocalMemory();
    }
    entries.push_back(EntryFor(creator.get(), KEY_ALL_ACCESS, CONTAINER_INHERIT_ACE));
    entries.push_back(EntryFor(system.get(), KEY_ALL_ACCESS, CONTAINER_INHERIT_ACE));
    entries.push_back(EntryFor(user.get(), KEY_ALL_ACCESS, CONTAINER_INHERIT_ACE));

    PACL acl = nullptr;
    if (SetEntriesInAclW(static_cast<ULONG>(entries.size()), entries.data(), nullptr, &acl) !=
        ERROR_SUCCESS) {
        return LocalMemory();
    }
    return LocalMemory(acl);
}

LocalMemory BuildSettingsKeyAcl() {
    return BuildSettingsKeyAcl(GetNtVersion());
}

DWORD MergeAppPackagesEntry(PACL current, LocalMemory& merged) {
    merged.reset();
    if (current == nullptr) {
        return ERROR_SUCCESS; // a NULL list lets everyone in, app packages too: nothing to add
    }
    AllocatedSid packages = AllApplicationPackages();
    if (!packages) {
        return GetLastError();
    }
    EXPLICIT_ACCESS_W entry =
        EntryFor(packages.get(), kAppPackagesFileRights, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE);
    PACL acl = nullptr;
    DWORD status = SetEntriesInAclW(1, &entry, current, &acl);
    merged.reset(acl);
    return status;
}

LocalMemory LowIntegrityLabelDescriptor() {
    LocalMemory descriptor;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(
            kLowIntegrityLabel, SDDL_REVISION_1, reinterpret_cast<PSECURITY_DESCRIPTOR*>(descriptor.put()),
            nullptr)) {
        descriptor.reset();
    }
    return descriptor;
}

namespace {

// Opens the HKLM key `path` with `access` alone and sets `part` of its security
// from `descriptor`; a missing descriptor is a bad argument.
LSTATUS SetKeySecurityPart(const std::wstring& path, REGSAM access, SECURITY_INFORMATION part,
                           PSECURITY_DESCRIPTOR descriptor) {
    if (descriptor == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    RegKey key;
    LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, access, key.put());
    if (status == ERROR_SUCCESS) {
        status = RegSetKeySecurity(key.get(), part, descriptor);
    }
    return status;
}

} // namespace

LSTATUS SetKeyOwnerAndDacl(const std::wstring& path, PSECURITY_DESCRIPTOR ownerDescriptor,
                           PSECURITY_DESCRIPTOR daclDescriptor) {
    const LSTATUS owner = SetKeySecurityPart(path, WRITE_OWNER, OWNER_SECURITY_INFORMATION, ownerDescriptor);
    const LSTATUS dacl = SetKeySecurityPart(path, WRITE_DAC, DACL_SECURITY_INFORMATION, daclDescriptor);
    return owner != ERROR_SUCCESS ? owner : dacl;
}

} // namespace setuputils
