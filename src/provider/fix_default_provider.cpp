// FixDefaultProvider (deferred; CustomActionData: "type:provider/type:provider..."):
// for each provider type the package serves, removes the user's default
// provider and repairs the machine default. A default that works stays,
// except an outdated one of the GOST types, which gives way to the package's
// provider; a default that does not work is replaced by the package's
// provider, else by a system provider of the type, else by the first
// installed provider of the type that works. CryptoAPI failures are skipped.
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>
#include <wincrypt.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "provider/default_provider_rules.h"

namespace setuputils {
namespace {

// Every context is a silent verification context, released at once.
constexpr DWORD kContextFlags = CRYPT_VERIFYCONTEXT | CRYPT_SILENT;
constexpr DWORD kNameBufferBytes = 520;
constexpr DWORD kParam129 = 129;
constexpr DWORD kParam129Length = 4;
constexpr DWORD kParam138 = 138;
constexpr DWORD kParam138Length = 20;

// How the machine default answered.
struct DefaultState {
    bool works = false;   // it could be acquired
    bool current = false; // and it is current enough to be kept as it stands
};

CryptContext Acquire(const wchar_t* provider, DWORD type) {
    CryptContext context;
    if (!CryptAcquireContextW(context.put(), nullptr, provider, type, kContextFlags)) {
        context.release(); // nothing to release
    }
    return context;
}

bool CanAcquire(const wchar_t* provider, DWORD type) {
    return static_cast<bool>(Acquire(provider, type));
}

bool Answers(HCRYPTPROV context, DWORD param, DWORD length) {
    std::vector<BYTE> data(length);
    return CryptGetProvParam(context, param, data.data(), &length, 0) != FALSE;
}

DefaultState Examine(const wchar_t* provider, DWORD type) {
    CryptContext context = Acquire(provider, type);
    if (!context) {
        return {};
    }
    DWORD version = 0;
    DWORD length = sizeof(version);
    if (!CryptGetProvParam(context.get(), PP_VERSION, reinterpret_cast<BYTE*>(&version), &length, 0)) {
        return {true, false};
    }
    const bool answers129 = Answers(context.get(), kParam129, kParam129Length);
    const bool answers138 = Answers(context.get(), kParam138, kParam138Length);
    return {true, IsCurrentProvider(version, answers129, answers138)};
}

bool ReadDefault(DWORD type, DWORD which, std::wstring& provider) {
    wchar_t name[kNameBufferBytes / sizeof(wchar_t)] = L"";
    DWORD size = kNameBufferBytes;
    if (!CryptGetDefaultProviderW(type, nullptr, which, name, &size)) {
        return false;
    }
    provider = name;
    return true;
}

void RemoveUserDefault(DWORD type) {
    std::wstring provider;
    if (ReadDefault(type, CRYPT_USER_DEFAULT, provider)) {
        CryptSetProviderExW(provider.c_str(), type, nullptr, CRYPT_USER_DEFAULT | CRYPT_DELETE_DEFAULT);
    }
}

// Makes `provider` the machine default when it can be acquired.
bool MakeDefaultIfItWorks(const wchar_t* provider, DWORD type) {
    return CanAcquire(provider, type) &&
           CryptSetProviderExW(provider, type, nullptr, CRYPT_MACHINE_DEFAULT) != FALSE;
}

// The first installed provider of `type` that works becomes the default.
void MakeFirstWorkingProviderDefault(DWORD type) {
    for (DWORD index = 0;; ++index) {
        DWORD providerType = 0;
        DWORD size = 0;
        if (!CryptEnumProvidersW(index, nullptr, 0, &providerType, nullptr, &size)) {
            return;
        }
        std::vector<wchar_t> name(size / sizeof(wchar_t) + 1, L'\0');
        if (!CryptEnumProvidersW(index, nullptr, 0, &providerType, name.data(), &size)) {
            return;
        }
        if (providerType == type && MakeDefaultIfItWorks(name.data(), type)) {
            return;
        }
    }
}

void RepairDefault(const PackageProvider& entry) {
    const DWORD type = static_cast<DWORD>(entry.type);
    RemoveUserDefault(type);
    std::wstring current;
    if (!ReadDefault(type, CRYPT_MACHINE_DEFAULT, current)) {
        return;
    }
    const DefaultState state = Examine(current.c_str(), type);
    if (state.current) {
        return;
    }
    if ((ReplacesOutdatedDefault(entry.type) || !state.works) &&
        MakeDefaultIfItWorks(entry.name.c_str(), type)) {
        return;
    }
    if (state.works) {
        return;
    }
    const std::wstring fallback(SystemFallbackProvider(entry.type));
    if (!fallback.empty() && MakeDefaultIfItWorks(fallback.c_str(), type)) {
        return;
    }
    MakeFirstWorkingProviderDefault(type);
}

void FixDefaults(MSIHANDLE session) {
    std::wstring list;
    GetPropertyString(session, L"CustomActionData", list);
    for (const PackageProvider& entry : ParseProviderList(list)) {
        RepairDefault(entry);
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI FixDefaultProvider(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"FixDefaultProvider", setuputils::FixDefaults);
}
