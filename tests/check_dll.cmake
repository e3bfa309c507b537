# Checks the built library: a 64-bit PE DLL that imports system DLLs only and
# exports the package's entry points under their exact names.
cmake_minimum_required(VERSION 3.20)
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${DLL}")
endif()
execute_process(COMMAND ${OBJDUMP} -f ${DLL} OUTPUT_VARIABLE header)
if(NOT header MATCHES "file format pei-x86-64")
  message(FATAL_ERROR "not a PE32+ x86-64 image:\n${header}")
endif()
if(NOT dump MATCHES "Magic[ \t]+020b")
  message(FATAL_ERROR "not a PE32+ image")
endif()
if(NOT dump MATCHES "Characteristics[^\n]*\n([ \t]+[^\n]+\n)*[ \t]+DLL\n")
  message(FATAL_ERROR "not a DLL")
endif()

set(system_dlls advapi32.dll crypt32.dll kernel32.dll msi.dll msvcrt.dll netapi32.dll ntdll.dll ole32.dll
    secur32.dll setupapi.dll shell32.dll shlwapi.dll user32.dll)
string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${dump}")
if(NOT imports)
  message(FATAL_ERROR "no import table found")
endif()
foreach(line IN LISTS imports)
  string(REPLACE "DLL Name: " "" name "${line}")
  string(STRIP "${name}" name)
  string(TOLOWER "${name}" lower)
  if(NOT lower IN_LIST system_dlls)
    message(FATAL_ERROR "imports a DLL that is not part of the system: ${name}")
  endif()
  message(STATUS "imports ${name}")
endforeach()

set(exports AddNewFeatures AddNVCertStore AddRemovedComponents AllAppPackageSecurity
    AnotherCSPDetected CheckDll CheckModeOff CheckModeOn CheckVipNet
    ClearWrongMachineCertificateProperties ClearWrongUserCertificateProperties DelAllReg
    DeleteShortcuts DelNVCryptographyKey DelNVCSPs EnableInteractiveServices FixDefaultProvider
    FixPrivateKeyLinks GetCSPProgramW6432Dir GetOldRPProductID GetOldWLProductID HiberbootDisable
    HideNVCSPRIfInstalled HideNVCSPRIfKC InitializeHardRng InitializeHardRngUser KSCheckDeleteFlag
    KSCleanup KSInstallW KSInstallWW KSInstCleanUp KSInstInstall KSInstRollback KSInstUninstall
    KSProcess KSUninstallW KSUninstallWW MigrateReaders MsiCreateService MsiCreateServiceRollback
    MsiGetShortPathName NvnLink NvnRelocate NvnRevert NvnUnlink NVRegisterUser ProcessPropertyEx
    ProcessRegReaders RebuildIconCache RegCreateSlot0Entry RemoveAppPaths RunDllW
    SetNoInteractiveServices SetRegistryLow SetRunOnceEveryone SetSCardSvrAutoStart SetupCSPTest
    SslRegInstall SslRegister SslRegRollback SslRegUninstall StrengthenedKeyWarning TlsRegUninstall
    UnHookSystem UninstallCSP2 UninstallSmartCard UninstallTLS2 UnprotectService
    UpdateSystemIntegrity)
foreach(name IN LISTS exports)
  if(NOT dump MATCHES "\\] ${name}\n")
    message(FATAL_ERROR "does not export ${name}")
  endif()
endforeach()
message(STATUS "exports checked: ${exports}")
