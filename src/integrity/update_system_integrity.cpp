// UpdateSystemIntegrity (deferred; CustomActionData: the verifier command, its
// program path with any leading switches): runs the verifier with
// "-addreg -file" on every patched system image the provider lists, in the
// 32-bit system directory first and then in the system directory, so that the
// integrity records match the images as installed. The verifier's own results
// do not matter here; only a missing command or system directory fails.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"
#include "frame/session.h"
#include "integrity/run_nv_verify.h"
#include "integrity/verifier_commands.h"

namespace setuputils {
namespace {

constexpr wchar_t kPatchesKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnPatches";
constexpr wchar_t kImageValue[] = L"Image Dll";

// The system directories are read into MAX_PATH characters, one fewer asked
// for so that the last always holds a terminator.
constexpr UINT kDirectoryChars = MAX_PATH;
constexpr UINT kDirectoryCharsAsked = kDirectoryChars - 1;

using DirectoryQuery = UINT(WINAPI*)(LPWSTR, UINT);

// Empty when the call fails (or would not fit).
std::wstring SystemDirectory(DirectoryQuery query) {
    wchar_t directory[kDirectoryChars] = L"";
    UINT length = query(directory, kDirectoryCharsAsked);
    directory[kDirectoryCharsAsked] = L'\0';
    if (length == 0 || length >= kDirectoryCharsAsked) {
        return std::wstring();
    }
    return directory;
}

// The image named by a subkey of the patch list; false when the subkey cannot
// be read, names none, or names one the verifier must not touch.
bool ReadPatchedImage(HKEY patches, const wchar_t* subkey, std::wstring& image) {
    RegKey entry;
    return RegOpenKeyExW(patches, subkey, 0, KEY_READ, entry.put()) == ERROR_SUCCESS &&
           ReadStringValue(entry.get(), kImageValue, image) && !IsExcludedImage(image);
}

void VerifyPatchedImages(MSIHANDLE session, const std::wstring& prefix, const std::wstring& systemDirectory,
                         const std::wstring& thirtyTwoBitDirectory) {
    RegKey patches;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kPatchesKey, 0, KEY_READ, patches.put()) != ERROR_SUCCESS) {
        return;
    }
    for (const std::wstring& subkey : SubkeyNames(patches.get())) {
        std::wstring image;
        if (!ReadPatchedImage(patches.get(), subkey.c_str(), image)) {
            continue;
        }
        for (const std::wstring& commandLine :
             VerifierCommandLines(prefix, systemDirectory, thirtyTwoBitDirectory, image)) {
            RunNVVerify(session, commandLine);
        }
    }
}

UINT UpdateIntegrityRecords(MSIHANDLE session) {
    std::wstring verifier;
    if (GetPropertyString(session, L"CustomActionData", verifier) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    const std::wstring systemDirectory = SystemDirectory(GetSystemDirectoryW);
    if (systemDirectory.empty()) {
        return ERROR_INSTALL_FAILURE;
    }
    // A 32-bit system has no 32-bit system directory of its own: its images run once.
    const std::wstring thirtyTwoBitDirectory = SystemDirectory(GetSystemWow64DirectoryW);
    VerifyPatchedImages(session, VerifierCommandPrefix(verifier), systemDirectory, thirtyTwoBitDirectory);
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI UpdateSystemIntegrity(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"UpdateSystemIntegrity", setuputils::UpdateIntegrityRecords);
}
