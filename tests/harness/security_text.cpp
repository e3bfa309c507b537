#include "security_text.h"

#include <aclapi.h>
#include <sddl.h>

#include "frame/handles.h"

namespace harness {

std::wstring AclText(PACL acl) {
    SECURITY_DESCRIPTOR descriptor{};
    setuputils::LocalMemory text;
    if (acl == nullptr || !InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE) ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(
            &descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, reinterpret_cast<LPWSTR*>(text.put()),
            nullptr)) {
        return L"<unreadable>";
    }
    return static_cast<const wchar_t*>(text.get());
}

std::wstring KeyDaclText(HKEY root, const std::wstring& path) {
    setuputils::RegKey key;
    setuputils::LocalMemory descriptor;
    PACL acl = nullptr;
    RegOpenKeyExW(root, path.c_str(), 0, READ_CONTROL, key.put());
    GetSecurityInfo(key.get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr, nullptr, &acl, nullptr,
                    reinterpret_cast<void**>(descriptor.put()));
    return AclText(acl);
}

} // namespace harness
