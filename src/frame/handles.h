// Owners of the Win32 and installer handles the actions open.
#pragma once

#include <windows.h>
#include <wincrypt.h>
#include <msi.h>
#include <msiquery.h>
#include <setupapi.h>

#include "frame/unique_handle.h"

namespace setuputils {

struct MsiHandleTraits {
    using Handle = MSIHANDLE;
    static Handle Invalid() { return 0; }
    static void Close(Handle handle) { MsiCloseHandle(handle); }
};

struct RegKeyTraits {
    using Handle = HKEY;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { RegCloseKey(handle); }
};

struct ServiceHandleTraits {
    using Handle = SC_HANDLE;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { CloseServiceHandle(handle); }
};

struct InfHandleTraits {
    using Handle = HINF;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) { SetupCloseInfFile(handle); }
};

struct LocalMemoryTraits {
    using Handle = HLOCAL;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { LocalFree(handle); }
};

struct KernelHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { CloseHandle(handle); }
};

// Files and devices opened with CreateFileW, which signals failure with
// INVALID_HANDLE_VALUE rather than null.
struct FileHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) { CloseHandle(handle); }
};

struct FindHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) { FindClose(handle); }
};

struct FileQueueTraits {
    using Handle = HSPFILEQ;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Handle handle) { SetupCloseFileQueue(handle); }
};

// SIDs made with AllocateAndInitializeSid.
struct AllocatedSidTraits {
    using Handle = PSID;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { FreeSid(handle); }
};

// Provider contexts from CryptAcquireContextW.
struct CryptContextTraits {
    using Handle = HCRYPTPROV;
    static Handle Invalid() { return 0; }
    static void Close(Handle handle) { CryptReleaseContext(handle, 0); }
};

// Certificate stores from CertOpenStore.
struct CertStoreTraits {
    using Handle = HCERTSTORE;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { CertCloseStore(handle, 0); }
};

// Certificate contexts kept beyond the walk of their store.
struct CertContextTraits {
    using Handle = PCCERT_CONTEXT;
    static Handle Invalid() { return nullptr; }
    static void Close(Handle handle) { CertFreeCertificateContext(handle); }
};

using MsiHandle = UniqueHandle<MsiHandleTraits>;
using RegKey = UniqueHandle<RegKeyTraits>;
using ServiceHandle = UniqueHandle<ServiceHandleTraits>;
using InfHandle = UniqueHandle<InfHandleTraits>;
using LocalMemory = UniqueHandle<LocalMemoryTraits>;
using TokenHandle = UniqueHandle<KernelHandleTraits>;
using KernelHandle = UniqueHandle<KernelHandleTraits>;
using FileHandle = UniqueHandle<FileHandleTraits>;
using FindHandle = UniqueHandle<FindHandleTraits>;
using FileQueue = UniqueHandle<FileQueueTraits>;
using AllocatedSid = UniqueHandle<AllocatedSidTraits>;
using CertStore = UniqueHandle<CertStoreTraits>;
using CertContext = UniqueHandle<CertContextTraits>;
using CryptContext = UniqueHandle<CryptContextTraits>;

} // namespace setuputils
