// AllAppPackageSecurity (deferred; CustomActionData: a file or folder): from
// Windows 8 on, lets app-container processes read and run the provider's files.
#include <windows.h>
#include <aclapi.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "profiles/access_rights.h"

namespace setuputils {
namespace {

// Adds the all-application-packages entry to the access list of `path`; a
// NULL list, which lets everyone in, stays as it is. The system's refusal
// changes nothing and is not reported.
void GrantAppPackagesAccess(const std::wstring& path) {
    PACL current = nullptr;
    LocalMemory descriptor;
    if (GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                              &current, nullptr,
                              reinterpret_cast<PSECURITY_DESCRIPTOR*>(descriptor.put())) != ERROR_SUCCESS) {
        return;
    }
    LocalMemory merged;
    if (MergeAppPackagesEntry(current, merged) == ERROR_SUCCESS && merged) {
        SetNamedSecurityInfoW(const_cast<wchar_t*>(path.c_str()), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION,
                              nullptr, nullptr, static_cast<PACL>(merged.get()), nullptr);
    }
}

UINT AllowAppPackages(MSIHANDLE session) {
    std::wstring path;
    if (GetPropertyString(session, L"CustomActionData", path) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    if (HasAppContainers(GetNtVersion())) {
        GrantAppPackagesAccess(path);
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI AllAppPackageSecurity(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"AllAppPackageSecurity", setuputils::AllowAppPackages);
}
