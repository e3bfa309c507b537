// GetCSPProgramW6432Dir (immediate): sets the property "GetCSPProgramW6432Dir"
// to the provider's folder below the system's 64-bit program files folder.
// Returns the first failing registry or installer status.
#include <string>
#include <vector>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kCurrentVersion[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion";
constexpr wchar_t kProgramW6432Dir[] = L"ProgramW6432Dir";
constexpr wchar_t kProviderBelowPrograms[] = L"\\Norvane\\CSP\\";
constexpr wchar_t kProperty[] = L"GetCSPProgramW6432Dir";

// "ProgramW6432Dir" of the 64-bit view; the registry's status.
LSTATUS ReadProgramW6432Dir(std::wstring& directory) {
    RegKey key;
    if (LSTATUS status =
            RegOpenKeyExW(HKEY_LOCAL_MACHINE, kCurrentVersion, 0, KEY_READ | KEY_WOW64_64KEY, key.put());
        status != ERROR_SUCCESS) {
        return status;
    }
    constexpr DWORD kStoredAsIs = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    DWORD size = 0;
    if (LSTATUS status =
            RegGetValueW(key.get(), nullptr, kProgramW6432Dir, kStoredAsIs, nullptr, nullptr, &size);
        status != ERROR_SUCCESS) {
        return status;
    }
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 1);
    size = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    if (LSTATUS status =
            RegGetValueW(key.get(), nullptr, kProgramW6432Dir, kStoredAsIs, nullptr, buffer.data(), &size);
        status != ERROR_SUCCESS) {
        return status;
    }
    directory.assign(buffer.data());
    return ERROR_SUCCESS;
}

UINT SetProviderProgramDir(MSIHANDLE session) {
    std::wstring directory;
    if (LSTATUS status = ReadProgramW6432Dir(directory); status != ERROR_SUCCESS) {
        return static_cast<UINT>(status);
    }
    // The action's data is not used, but a failure to read it counts.
    std::wstring unused;
    if (UINT status = GetPropertyString(session, L"CustomActionData", unused); status != ERROR_SUCCESS) {
        return status;
    }
    return SetProperty(session, kProperty, (directory + kProviderBelowPrograms).c_str());
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI GetCSPProgramW6432Dir(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"GetCSPProgramW6432Dir", setuputils::SetProviderProgramDir);
}
