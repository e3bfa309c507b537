// Owners of the Win32 and installer handles the actions open.
#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <msi.h>
#include <msiquery.h>
#include <setupapi.h>

#include "frame/unique_handle.h"

namespace setuputils {

// Closes a handle with `close(handle)`.
template <auto close>
struct CloseWith {
    template <typename Handle>
    void operator()(Handle handle) const {
        close(handle);
    }
};

inline BOOL ReleaseCryptContext(HCRYPTPROV context) {
    return CryptReleaseContext(context, 0);
}
inline BOOL CloseCertificateStore(HCERTSTORE store) {
    return CertCloseStore(store, 0);
}

using MsiHandle = UniqueHandle<MSIHANDLE, CloseWith<&MsiCloseHandle>>;
using RegKey = UniqueHandle<HKEY, CloseWith<&RegCloseKey>>;
using ServiceHandle = UniqueHandle<SC_HANDLE, CloseWith<&CloseServiceHandle>>;
using InfHandle = UniqueHandle<HINF, CloseWith<&SetupCloseInfFile>>;
using LocalMemory = UniqueHandle<HLOCAL, CloseWith<&LocalFree>>;
// Processes, threads, tokens, files and devices.
using KernelHandle = UniqueHandle<HANDLE, CloseWith<&CloseHandle>>;
using TokenHandle = KernelHandle;
using FileHandle = KernelHandle;
using FindHandle = UniqueHandle<HANDLE, CloseWith<&FindClose>>;
using FileQueue = UniqueHandle<HSPFILEQ, CloseWith<&SetupCloseFileQueue>>;
// SIDs made with AllocateAndInitializeSid.
using AllocatedSid = UniqueHandle<PSID, CloseWith<&FreeSid>>;
using CryptContext = UniqueHandle<HCRYPTPROV, CloseWith<&ReleaseCryptContext>>;
using CertStore = UniqueHandle<HCERTSTORE, CloseWith<&CloseCertificateStore>>;
// Certificate contexts kept beyond the walk of their store.
using CertContext = UniqueHandle<PCCERT_CONTEXT, CloseWith<&CertFreeCertificateContext>>;

} // namespace setuputils
