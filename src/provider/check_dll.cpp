// CheckDll (immediate): checks that the system libraries the provider needs
// load. The first one that does not is reported as the package's error 6666
// with its name and the error, and nothing else is tried; when all load,
// "CHECKDLLRESULT64" is set to "1". The package decides by that property.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr int kErrorMissingLibrary = 6666;
// Reported when the loader leaves no error of its own.
constexpr DWORD kUnknownLoadError = ERROR_INVALID_LIBRARY; // 4301
constexpr const wchar_t* kRequiredLibraries[] = {L"winscard.dll", L"setupapi.dll", L"secur32.dll",
                                                 L"crypt32.dll"};

void ReportMissingLibrary(MSIHANDLE session, const wchar_t* library, DWORD error) {
    PostMessageRecord(session, kMessageError, nullptr, kErrorMissingLibrary, library,
                      static_cast<int>(error != 0 ? error : kUnknownLoadError));
}

void Check(MSIHANDLE session) {
    for (const wchar_t* library : kRequiredLibraries) {
        HMODULE module = LoadLibraryW(library);
        if (module == nullptr) {
            ReportMissingLibrary(session, library, GetLastError());
            return;
        }
        FreeLibrary(module);
    }
    SetProperty(session, L"CHECKDLLRESULT64", L"1");
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI CheckDll(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"CheckDll", setuputils::Check);
}
