// setuputils.dll loaded from beside the test program, its exports found by name.
#pragma once

#include <stdexcept>
#include <string>

#include <windows.h>
#include <msi.h>

namespace harness {

using CustomAction = UINT(WINAPI*)(MSIHANDLE);
using RunDllEntry = void(CALLBACK*)(HWND, HINSTANCE, LPWSTR, int);

class SetupUtilsLibrary {
public:
    SetupUtilsLibrary();
    ~SetupUtilsLibrary();
    SetupUtilsLibrary(const SetupUtilsLibrary&) = delete;
    SetupUtilsLibrary& operator=(const SetupUtilsLibrary&) = delete;

    static std::wstring Path();
    CustomAction Action(const char* name) const;
    RunDllEntry CommandLineEntry(const char* name) const;

private:
    HMODULE module_;
};

} // namespace harness
