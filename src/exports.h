// The exported entry points, with the signatures the installer and rundll32 call.
#pragma once

#include <windows.h>
#include <msi.h>

extern "C" {

// Custom actions: one installation handle in, a Windows Installer status out.
UINT WINAPI AddRemovedComponents(MSIHANDLE session);
UINT WINAPI AllAppPackageSecurity(MSIHANDLE session);
UINT WINAPI KSCheckDeleteFlag(MSIHANDLE session);
UINT WINAPI KSCleanup(MSIHANDLE session);
UINT WINAPI KSInstCleanUp(MSIHANDLE session);
UINT WINAPI KSInstInstall(MSIHANDLE session);
UINT WINAPI KSInstUninstall(MSIHANDLE session); // also exported as KSInstRollback
UINT WINAPI KSProcess(MSIHANDLE session);
UINT WINAPI NvnLink(MSIHANDLE session);
UINT WINAPI NvnRelocate(MSIHANDLE session);
UINT WINAPI NvnRevert(MSIHANDLE session);
UINT WINAPI NvnUnlink(MSIHANDLE session);
UINT WINAPI SetRegistryLow(MSIHANDLE session);

// Command-line entry points for rundll32.
void CALLBACK KSInstallW(HWND window, HINSTANCE instance, LPWSTR commandLine, int show);
void CALLBACK KSUninstallW(HWND window, HINSTANCE instance, LPWSTR commandLine, int show);
void CALLBACK RunDllW(HWND window, HINSTANCE instance, LPWSTR commandLine, int show);

} // extern "C"
