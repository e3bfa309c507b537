// The test cryptographic service provider (bin/test_csp.dll). One DLL serves
// every provider name it is registered under: each context remembers the name
// it was acquired for, behaves as the test set up for that name and records
// its calls. The registry layout is described in test_provider.h.
#include <cstdio>
#include <cwchar>
#include <string>

#include <windows.h>
#include <wincrypt.h>

#include "test_provider.h"

namespace {

using harness::kTestCspKey;

// What advapi32 hands to CPAcquireContext (version 3 and later carry the name).
struct ProviderTable {
    DWORD version;
    FARPROC verifyImage;
    FARPROC returnWindow;
    DWORD providerType;
    BYTE* contextInfo;
    DWORD contextInfoLength;
    LPSTR providerName;
};

struct Context {
    std::wstring name;
};

constexpr DWORD kParam129 = 129;
constexpr DWORD kParam138 = 138;
constexpr DWORD kParam129Length = 4;
constexpr DWORD kParam138Length = 20;
constexpr DWORD kDefaultVersion = 0x200;

std::wstring SettingsPath(const std::wstring& name) {
    return std::wstring(kTestCspKey) + L"\\" + name;
}

DWORD ReadSetting(const std::wstring& name, const wchar_t* value, DWORD otherwise) {
    DWORD data = 0;
    DWORD size = sizeof(data);
    if (RegGetValueW(HKEY_LOCAL_MACHINE, SettingsPath(name).c_str(), value, RRF_RT_REG_DWORD, nullptr, &data,
                     &size) != ERROR_SUCCESS) {
        return otherwise;
    }
    return data;
}

// Appends "<function> <param> 0x<flags>" as the next numbered value of Calls.
void Record(const std::wstring& name, const wchar_t* function, DWORD param, DWORD flags) {
    HKEY calls = nullptr;
    const std::wstring path = SettingsPath(name) + L"\\" + harness::kCallsSubkey;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_SET_VALUE | KEY_QUERY_VALUE,
                        nullptr, &calls, nullptr) != ERROR_SUCCESS) {
        return;
    }
    DWORD count = 0;
    RegQueryInfoKeyW(calls, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &count, nullptr, nullptr,
                     nullptr, nullptr);
    wchar_t number[16];
    swprintf(number, 16, L"%04lu", count + 1);
    wchar_t text[128];
    swprintf(text, 128, L"%ls %lu 0x%08lX", function, param, flags);
    RegSetValueExW(calls, number, 0, REG_SZ, reinterpret_cast<const BYTE*>(text),
                   static_cast<DWORD>((wcslen(text) + 1) * sizeof(wchar_t)));
    RegCloseKey(calls);
}

const std::wstring& NameOf(HCRYPTPROV provider) {
    static const std::wstring unknown = L"(no context)";
    return provider != 0 ? reinterpret_cast<Context*>(provider)->name : unknown;
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

BOOL NotImplemented(HCRYPTPROV provider, const wchar_t* function, DWORD flags = 0) {
    Record(NameOf(provider), function, 0, flags);
    return Fail(static_cast<DWORD>(E_NOTIMPL));
}

// Copies `length` bytes of `data` out as CryptGetProvParam does: the size
// alone when there is no buffer, ERROR_MORE_DATA when it is too small.
BOOL Answer(const void* data, DWORD length, BYTE* buffer, DWORD* bufferLength) {
    if (bufferLength == nullptr) {
        return Fail(ERROR_INVALID_PARAMETER);
    }
    const DWORD room = *bufferLength;
    *bufferLength = length;
    if (buffer == nullptr) {
        return TRUE;
    }
    if (room < length) {
        return Fail(ERROR_MORE_DATA);
    }
    memcpy(buffer, data, length);
    return TRUE;
}

std::wstring Widen(const char* text) {
    if (text == nullptr) {
        return L"";
    }
    const int length = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
    std::wstring wide(length > 0 ? length : 1, L'\0');
    MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(), length);
    wide.resize(wcslen(wide.c_str()));
    return wide;
}

} // namespace

extern "C" {

BOOL WINAPI CPAcquireContext(HCRYPTPROV* provider, LPSTR, DWORD flags, ProviderTable* table) {
    const std::wstring name =
        table != nullptr && table->version >= 3 ? Widen(table->providerName) : std::wstring(L"(unnamed)");
    Record(name, L"CPAcquireContext", 0, flags);
    if (const DWORD result = ReadSetting(name, harness::kAcquireResultValue, 0); result != 0) {
        return Fail(result);
    }
    *provider = (flags & CRYPT_DELETEKEYSET) != 0 ? 0 : reinterpret_cast<HCRYPTPROV>(new Context{name});
    return TRUE;
}

BOOL WINAPI CPReleaseContext(HCRYPTPROV provider, DWORD flags) {
    Record(NameOf(provider), L"CPReleaseContext", 0, flags);
    delete reinterpret_cast<Context*>(provider);
    return TRUE;
}

BOOL WINAPI CPGetProvParam(HCRYPTPROV provider, DWORD param, BYTE* data, DWORD* length, DWORD flags) {
    const std::wstring& name = NameOf(provider);
    Record(name, L"CPGetProvParam", param, flags);
    switch (param) {
    case PP_VERSION: {
        const DWORD version = ReadSetting(name, harness::kVersionValue, kDefaultVersion);
        return Answer(&version, sizeof(version), data, length);
    }
    case PP_NAME: {
        std::string narrow(name.begin(), name.end());
        return Answer(narrow.c_str(), static_cast<DWORD>(narrow.size() + 1), data, length);
    }
    case PP_IMPTYPE: {
        const DWORD type = CRYPT_IMPL_SOFTWARE;
        return Answer(&type, sizeof(type), data, length);
    }
    case PP_PROVTYPE: {
        DWORD type = 0;
        DWORD size = sizeof(type);
        const std::wstring registration = std::wstring(harness::kProviderRegistrationKey) + L"\\" + name;
        RegGetValueW(HKEY_LOCAL_MACHINE, registration.c_str(), L"Type", RRF_RT_REG_DWORD, nullptr, &type,
                     &size);
        return Answer(&type, sizeof(type), data, length);
    }
    case kParam129:
    case kParam138: {
        const bool answers =
            ReadSetting(name, param == kParam129 ? harness::kParam129Value : harness::kParam138Value, 0) != 0;
        const BYTE value[kParam138Length] = {1};
        return answers ? Answer(value, param == kParam129 ? kParam129Length : kParam138Length, data, length)
                       : Fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
    default:
        return Fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
}

BOOL WINAPI CPSetProvParam(HCRYPTPROV provider, DWORD param, const BYTE*, DWORD flags) {
    const std::wstring& name = NameOf(provider);
    Record(name, L"CPSetProvParam", param, flags);
    if (param != PP_USE_HARDWARE_RNG) {
        return Fail(static_cast<DWORD>(NTE_BAD_TYPE));
    }
    const DWORD result = ReadSetting(name, harness::kHardwareRngResultValue, 0);
    return result == 0 ? TRUE : Fail(result);
}

BOOL WINAPI CPGenRandom(HCRYPTPROV provider, DWORD length, BYTE* buffer) {
    Record(NameOf(provider), L"CPGenRandom", length, 0);
    for (DWORD i = 0; i < length; ++i) {
        buffer[i] = static_cast<BYTE>(i * 37 + 11);
    }
    return TRUE;
}

BOOL WINAPI CPGenKey(HCRYPTPROV provider, ALG_ID, DWORD flags, HCRYPTKEY*) {
    return NotImplemented(provider, L"CPGenKey", flags);
}

BOOL WINAPI CPDeriveKey(HCRYPTPROV provider, ALG_ID, HCRYPTHASH, DWORD flags, HCRYPTKEY*) {
    return NotImplemented(provider, L"CPDeriveKey", flags);
}

BOOL WINAPI CPDestroyKey(HCRYPTPROV provider, HCRYPTKEY) {
    return NotImplemented(provider, L"CPDestroyKey");
}

BOOL WINAPI CPSetKeyParam(HCRYPTPROV provider, HCRYPTKEY, DWORD, const BYTE*, DWORD flags) {
    return NotImplemented(provider, L"CPSetKeyParam", flags);
}

BOOL WINAPI CPGetKeyParam(HCRYPTPROV provider, HCRYPTKEY, DWORD, BYTE*, DWORD*, DWORD flags) {
    return NotImplemented(provider, L"CPGetKeyParam", flags);
}

BOOL WINAPI CPExportKey(HCRYPTPROV provider, HCRYPTKEY, HCRYPTKEY, DWORD, DWORD flags, BYTE*, DWORD*) {
    return NotImplemented(provider, L"CPExportKey", flags);
}

BOOL WINAPI CPImportKey(HCRYPTPROV provider, const BYTE*, DWORD, HCRYPTKEY, DWORD flags, HCRYPTKEY*) {
    return NotImplemented(provider, L"CPImportKey", flags);
}

BOOL WINAPI CPEncrypt(HCRYPTPROV provider, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD flags, BYTE*, DWORD*, DWORD) {
    return NotImplemented(provider, L"CPEncrypt", flags);
}

BOOL WINAPI CPDecrypt(HCRYPTPROV provider, HCRYPTKEY, HCRYPTHASH, BOOL, DWORD flags, BYTE*, DWORD*) {
    return NotImplemented(provider, L"CPDecrypt", flags);
}

BOOL WINAPI CPCreateHash(HCRYPTPROV provider, ALG_ID, HCRYPTKEY, DWORD flags, HCRYPTHASH*) {
    return NotImplemented(provider, L"CPCreateHash", flags);
}

BOOL WINAPI CPHashData(HCRYPTPROV provider, HCRYPTHASH, const BYTE*, DWORD, DWORD flags) {
    return NotImplemented(provider, L"CPHashData", flags);
}

BOOL WINAPI CPHashSessionKey(HCRYPTPROV provider, HCRYPTHASH, HCRYPTKEY, DWORD flags) {
    return NotImplemented(provider, L"CPHashSessionKey", flags);
}

BOOL WINAPI CPSignHash(HCRYPTPROV provider, HCRYPTHASH, DWORD, LPCWSTR, DWORD flags, BYTE*, DWORD*) {
    return NotImplemented(provider, L"CPSignHash", flags);
}

BOOL WINAPI CPDestroyHash(HCRYPTPROV provider, HCRYPTHASH) {
    return NotImplemented(provider, L"CPDestroyHash");
}

BOOL WINAPI CPSetHashParam(HCRYPTPROV provider, HCRYPTHASH, DWORD, const BYTE*, DWORD flags) {
    return NotImplemented(provider, L"CPSetHashParam", flags);
}

BOOL WINAPI CPGetHashParam(HCRYPTPROV provider, HCRYPTHASH, DWORD, BYTE*, DWORD*, DWORD flags) {
    return NotImplemented(provider, L"CPGetHashParam", flags);
}

BOOL WINAPI CPGetUserKey(HCRYPTPROV provider, DWORD, HCRYPTKEY*) {
    return NotImplemented(provider, L"CPGetUserKey");
}

BOOL WINAPI CPVerifySignature(HCRYPTPROV provider, HCRYPTHASH, const BYTE*, DWORD, HCRYPTKEY, LPCWSTR,
                              DWORD flags) {
    return NotImplemented(provider, L"CPVerifySignature", flags);
}

BOOL WINAPI CPDuplicateHash(HCRYPTPROV provider, HCRYPTHASH, DWORD*, DWORD flags, HCRYPTHASH*) {
    return NotImplemented(provider, L"CPDuplicateHash", flags);
}

BOOL WINAPI CPDuplicateKey(HCRYPTPROV provider, HCRYPTKEY, DWORD*, DWORD flags, HCRYPTKEY*) {
    return NotImplemented(provider, L"CPDuplicateKey", flags);
}

} // extern "C"
