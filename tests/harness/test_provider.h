// A test cryptographic service provider, bin/test_csp.dll, registered as
// provider `name` of `type` while a TestProvider lives, at the key advapi32
// loads it from (Wine checks no signature). One DLL serves every name: at each
// call it reads the name's behaviour from that key and appends the call there.
//     TestProvider gost(L"Test GOST CSP", 75, {.version = 0x300});
//     ... run an action that acquires "Test GOST CSP" ...
//     EXPECT_EQ(gost.TakeCalls(), L"CPAcquireContext 0 0xF0000040;CPReleaseContext 0 0x0;");
#pragma once

#include <optional>
#include <string>
#include <utility>

#include <windows.h>

#include "machine.h"

namespace harness {

inline constexpr wchar_t kBehaviourValue[] = L"TestBehaviour"; // REG_BINARY TestProviderBehaviour
inline constexpr wchar_t kCallsValue[] = L"TestCalls";         // REG_SZ "<function> <param> 0x<flags>;..."

inline std::wstring ProviderKey(const std::wstring& name) {
    return L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\" + name;
}

struct TestProviderBehaviour {
    DWORD acquireResult = 0; // 0: acquiring works; else the error it fails with
    DWORD version = 0x200;   // PP_VERSION: major version in bits 8-15
    bool answersParam129 = false;
    bool answersParam138 = false;
    DWORD hardwareRngResult = 0; // 0: PP_USE_HARDWARE_RNG accepted; else the error
};

class TestProvider {
public:
    TestProvider(std::wstring name, DWORD type, const TestProviderBehaviour& behaviour = {})
        : name_(std::move(name)) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, ProviderKey(name_), L"Image Path",
                            TestProgramPath(L"test_csp.dll"));
        WriteRegistryDword(HKEY_LOCAL_MACHINE, ProviderKey(name_), L"Type", type);
        SetBehaviour(behaviour);
    }
    ~TestProvider() { DeleteRegistryTree(HKEY_LOCAL_MACHINE, ProviderKey(name_)); }
    TestProvider(const TestProvider&) = delete;
    TestProvider& operator=(const TestProvider&) = delete;

    void SetBehaviour(const TestProviderBehaviour& behaviour) {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, ProviderKey(name_), kBehaviourValue,
                             MakeRegistryData(REG_BINARY, &behaviour, sizeof(behaviour)));
    }
    // The calls since the last time they were taken.
    std::wstring TakeCalls() {
        const std::wstring calls =
            ReadRegistryString(HKEY_LOCAL_MACHINE, ProviderKey(name_), kCallsValue).value_or(L"");
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, ProviderKey(name_), kCallsValue, std::nullopt);
        return calls;
    }

private:
    std::wstring name_;
};

} // namespace harness
