// NvnRelocate (deferred): moves the provider's three lists from the Session
// Manager key into the parameters key of the provider's control service and
// leaves links at their old places. NvnRevert (deferred) moves them back.
// Both always succeed; what fails is skipped.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "registry/registry_library.h"
#include "registry/registry_links.h"

namespace setuputils {
namespace {

struct RelocatedList {
    const wchar_t* linkKey;
    const wchar_t* realKey;
    const wchar_t* linkTarget;
};

constexpr RelocatedList kRelocatedLists[] = {
    {L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnIntegrity",
     L"SYSTEM\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\NvnIntegrity",
     L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\NvnIntegrity"},
    {L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnPatches",
     L"SYSTEM\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\NvnPatches",
     L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\NvnPatches"},
    {L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnExclude",
     L"SYSTEM\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\NvnExclude",
     L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\NvnExclude"},
};

constexpr wchar_t kSessionManagerKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
constexpr wchar_t kParametersKey[] = L"SYSTEM\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\";

LSTATUS CreateKey(const wchar_t* path, RegKey& key) {
    return RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(),
                           nullptr);
}

// Moves what stands at the old place into the new one, unless the old place is a link already.
void MoveToRealKey(const RelocatedList& list) {
    RegKey old;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, list.linkKey, REG_OPTION_OPEN_LINK, KEY_ALL_ACCESS, old.put()) !=
            ERROR_SUCCESS ||
        IsLinkKey(old.get())) {
        return;
    }
    RegKey real;
    if (CreateKey(list.realKey, real) == ERROR_SUCCESS) {
        MoveKeyTree(real.get(), old.get());
    }
}

void Relocate(const RelocatedList& list) {
    MoveToRealKey(list);
    DeleteRegistryLink(list.linkKey, true);
    RegKey link;
    if (OpenOrCreateLinkKey(list.linkKey, link) != ERROR_SUCCESS) {
        return;
    }
    RegKey real;
    CreateKey(list.realKey, real);
    real.reset();
    WriteLinkTarget(link.get(), list.linkTarget);
}

void FlushSessionManager() {
    RegKey sessionManager;
    if (CreateKey(kSessionManagerKey, sessionManager) == ERROR_SUCCESS) {
        RegFlushKey(sessionManager.get());
    }
}

void RelocateLists() {
    for (const RelocatedList& list : kRelocatedLists) {
        Relocate(list);
    }
    FlushSessionManager();
}

void RevertLists() {
    // A real key at an old place has no link value to delete and is kept.
    for (const RelocatedList& list : kRelocatedLists) {
        DeleteRegistryLink(list.linkKey, false);
    }
    RegKey parameters;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kParametersKey, 0, KEY_ALL_ACCESS, parameters.put()) ==
        ERROR_SUCCESS) {
        RegKey sessionManager;
        if (CreateKey(kSessionManagerKey, sessionManager) == ERROR_SUCCESS) {
            MoveKeyTree(sessionManager.get(), parameters.get());
        }
        sessionManager.reset();
        RegFlushKey(parameters.get());
    }
    parameters.reset();
    DeleteRegistryLink(kParametersKey, true);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI NvnRelocate(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"NvnRelocate", setuputils::RelocateLists);
}

extern "C" UINT WINAPI NvnRevert(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"NvnRevert", setuputils::RevertLists);
}
