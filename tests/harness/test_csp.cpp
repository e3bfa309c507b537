// The test provider (test_provider.h): Wine wants every entry point but CPDuplicateHash/Key.
#include <cstring>
#include <cwchar>
#include <string>

#include <windows.h>
#include <wincrypt.h>

#include "test_provider.h"

namespace {

// What advapi32 hands to CPAcquireContext (version 3 and later carry the name).
struct ProviderTable {
    DWORD version;
    FARPROC verifyImage, returnWindow;
    DWORD providerType;
    BYTE* contextInfo;
    DWORD contextInfoLength;
    LPSTR providerName;
};

// Appends "<function> <param> 0x<flags>;" to the calls of the name.
void Call(const std::wstring& name, const wchar_t* function, DWORD param, DWORD flags) {
    const std::wstring key = harness::ProviderKey(name);
    wchar_t calls[4096] = L"";
    DWORD size = sizeof(calls) - 256;
    RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), harness::kCallsValue, RRF_RT_REG_SZ, nullptr, calls, &size);
    swprintf(calls + wcslen(calls), 128, L"%ls %lu 0x%lX;", function, param, flags);
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), harness::kCallsValue, REG_SZ, calls,
                    static_cast<DWORD>((wcslen(calls) + 1) * sizeof(wchar_t)));
}

const std::wstring& NameOf(HCRYPTPROV provider) {
    return *reinterpret_cast<const std::wstring*>(provider);
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

} // namespace

extern "C" {

__declspec(dllexport) BOOL WINAPI
    CPAcquireContext(HCRYPTPROV* provider, LPSTR, DWORD flags, ProviderTable* table) {
    const char* narrow = table != nullptr && table->version >= 3 ? table->providerName : "";
    const std::wstring name(narrow, narrow + strlen(narrow));
    Call(name, L"CPAcquireContext", 0, flags);
    if (name.find(L"Broken") != std::wstring::npos) {
        return Fail(static_cast<DWORD>(NTE_KEYSET_ENTRY_BAD));
    }
    *provider = reinterpret_cast<HCRYPTPROV>(new std::wstring(name));
    return TRUE;
}

__declspec(dllexport) BOOL WINAPI CPReleaseContext(HCRYPTPROV provider, DWORD flags) {
    Call(NameOf(provider), L"CPReleaseContext", 0, flags);
    delete reinterpret_cast<std::wstring*>(provider);
    return TRUE;
}

// Answers the version, and when current parameters 129 (4 bytes) and 138 (20 bytes).
__declspec(dllexport) BOOL WINAPI
    CPGetProvParam(HCRYPTPROV provider, DWORD param, BYTE* data, DWORD* length, DWORD flags) {
    Call(NameOf(provider), L"CPGetProvParam", param, flags);
    const bool current = NameOf(provider).find(L"Current") != std::wstring::npos;
    const DWORD version = current ? 0x300 : 0x200;
    const DWORD size = param == PP_VERSION ? 4 : !current ? 0 : param == 129 ? 4 : param == 138 ? 20 : 0;
    if (size == 0 || data == nullptr || *length < size) {
        return Fail(size == 0 ? static_cast<DWORD>(NTE_BAD_TYPE) : ERROR_MORE_DATA);
    }
    const BYTE answer[20] = {1};
    memcpy(data, param == PP_VERSION ? static_cast<const void*>(&version) : answer, size);
    *length = size;
    return TRUE;
}

__declspec(dllexport) BOOL WINAPI CPSetProvParam(HCRYPTPROV provider, DWORD param, const BYTE*, DWORD flags) {
    Call(NameOf(provider), L"CPSetProvParam", param, flags);
    const DWORD rngResult = NameOf(provider).find(L"Refusing") != std::wstring::npos ? NTE_FAIL : 0;
    const DWORD result = param == PP_USE_HARDWARE_RNG ? rngResult : NTE_BAD_TYPE;
    return result == 0 ? TRUE : Fail(result);
}

// The entry points no test reaches.
#define NOT_IMPLEMENTED(name)                                                                                \
    __declspec(dllexport) BOOL WINAPI name() {                                                               \
        return Fail(static_cast<DWORD>(E_NOTIMPL));                                                          \
    }
#define NOT_IMPLEMENTED3(a, b, c) NOT_IMPLEMENTED(a) NOT_IMPLEMENTED(b) NOT_IMPLEMENTED(c)
NOT_IMPLEMENTED3(CPGenRandom, CPGenKey, CPDeriveKey)
NOT_IMPLEMENTED3(CPDestroyKey, CPSetKeyParam, CPGetKeyParam)
NOT_IMPLEMENTED3(CPExportKey, CPImportKey, CPEncrypt)
NOT_IMPLEMENTED3(CPDecrypt, CPCreateHash, CPHashData)
NOT_IMPLEMENTED3(CPHashSessionKey, CPSignHash, CPDestroyHash)
NOT_IMPLEMENTED3(CPSetHashParam, CPGetHashParam, CPGetUserKey)
NOT_IMPLEMENTED3(CPVerifySignature, CPDuplicateHash, CPDuplicateKey)

} // extern "C"
