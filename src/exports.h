// The exported entry points, with the signatures the installer and rundll32 call.
#pragma once

#include <windows.h>
#include <msi.h>

extern "C" {

// Custom actions: one installation handle in, a Windows Installer status out.
UINT WINAPI AddNewFeatures(MSIHANDLE session);
UINT WINAPI AddNVCertStore(MSIHANDLE session);
UINT WINAPI AddRemovedComponents(MSIHANDLE session);
UINT WINAPI AllAppPackageSecurity(MSIHANDLE session);
UINT WINAPI AnotherCSPDetected(MSIHANDLE session);
UINT WINAPI CheckDll(MSIHANDLE session);
UINT WINAPI CheckModeOff(MSIHANDLE session);
UINT WINAPI CheckModeOn(MSIHANDLE session);
UINT WINAPI CheckVipNet(MSIHANDLE session);
UINT WINAPI ClearWrongMachineCertificateProperties(MSIHANDLE session);
UINT WINAPI ClearWrongUserCertificateProperties(MSIHANDLE session);
UINT WINAPI DelAllReg(MSIHANDLE session);
UINT WINAPI DeleteShortcuts(MSIHANDLE session);
UINT WINAPI DelNVCryptographyKey(MSIHANDLE session);
UINT WINAPI DelNVCSPs(MSIHANDLE session);
UINT WINAPI EnableInteractiveServices(MSIHANDLE session);
UINT WINAPI FixDefaultProvider(MSIHANDLE session);
UINT WINAPI FixPrivateKeyLinks(MSIHANDLE session);
UINT WINAPI GetCSPProgramW6432Dir(MSIHANDLE session);
UINT WINAPI GetOldRPProductID(MSIHANDLE session);
UINT WINAPI GetOldWLProductID(MSIHANDLE session);
UINT WINAPI HiberbootDisable(MSIHANDLE session);
UINT WINAPI HideNVCSPRIfInstalled(MSIHANDLE session);
UINT WINAPI HideNVCSPRIfKC(MSIHANDLE session);
UINT WINAPI InitializeHardRng(MSIHANDLE session);
UINT WINAPI InitializeHardRngUser(MSIHANDLE session);
UINT WINAPI KSCheckDeleteFlag(MSIHANDLE session);
UINT WINAPI KSCleanup(MSIHANDLE session);
UINT WINAPI KSInstCleanUp(MSIHANDLE session);
UINT WINAPI KSInstInstall(MSIHANDLE session);
UINT WINAPI KSInstUninstall(MSIHANDLE session); // also exported as KSInstRollback
UINT WINAPI KSProcess(MSIHANDLE session);
UINT WINAPI MigrateReaders(MSIHANDLE session);
UINT WINAPI MsiCreateService(MSIHANDLE session);
UINT WINAPI MsiCreateServiceRollback(MSIHANDLE session);
UINT WINAPI MsiGetShortPathName(MSIHANDLE session);
UINT WINAPI NvnLink(MSIHANDLE session);
UINT WINAPI NvnRelocate(MSIHANDLE session);
UINT WINAPI NvnRevert(MSIHANDLE session);
UINT WINAPI NvnUnlink(MSIHANDLE session);
UINT WINAPI NVRegisterUser(MSIHANDLE session);
UINT WINAPI ProcessPropertyEx(MSIHANDLE session);
UINT WINAPI ProcessRegReaders(MSIHANDLE session);
UINT WINAPI RebuildIconCache(MSIHANDLE session);
UINT WINAPI RegCreateSlot0Entry(MSIHANDLE session);
UINT WINAPI RemoveAppPaths(MSIHANDLE session);
UINT WINAPI SetNoInteractiveServices(MSIHANDLE session);
UINT WINAPI SetRegistryLow(MSIHANDLE session);
UINT WINAPI SetRunOnceEveryone(MSIHANDLE session);
UINT WINAPI SetSCardSvrAutoStart(MSIHANDLE session);
UINT WINAPI SetupCSPTest(MSIHANDLE session);
UINT WINAPI SslRegInstall(MSIHANDLE session);
UINT WINAPI SslRegister(MSIHANDLE session);
UINT WINAPI SslRegRollback(MSIHANDLE session); // also exported as SslRegUninstall
UINT WINAPI StrengthenedKeyWarning(MSIHANDLE session);
UINT WINAPI TlsRegUninstall(MSIHANDLE session);
UINT WINAPI UnHookSystem(MSIHANDLE session);
UINT WINAPI UninstallCSP2(MSIHANDLE session);
UINT WINAPI UninstallSmartCard(MSIHANDLE session);
UINT WINAPI UninstallTLS2(MSIHANDLE session);
UINT WINAPI UnprotectService(MSIHANDLE session);
UINT WINAPI UpdateSystemIntegrity(MSIHANDLE session);

// Command-line entry points for rundll32.
void CALLBACK KSInstallW(HWND window, HINSTANCE instance, LPWSTR commandLine, int show);
void CALLBACK KSUninstallW(HWND window, HINSTANCE instance, LPWSTR commandLine, int show);
void CALLBACK RunDllW(HWND window, HINSTANCE instance, LPWSTR commandLine, int show);

} // extern "C"
