// The test provider (test_csp.dll), registered as `name` of `type` while a TestProvider lives
// (Wine checks no signature). At each call the DLL reads the name's behaviour from its key and
// appends the call there: TakeCalls() gives "CPAcquireContext 0 0xF0000040;CPReleaseContext 0 0x0;".
#pragma once

#include <optional>
#include <string>

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
    TestProvider(const std::wstring& name, DWORD type, const TestProviderBehaviour& behaviour = {})
        : key_(ProviderKey(name)) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, key_, L"Image Path", TestProgramPath(L"test_csp.dll"));
        WriteRegistryDword(HKEY_LOCAL_MACHINE, key_, L"Type", type);
        SetBehaviour(behaviour);
    }
    ~TestProvider() { DeleteRegistryTree(HKEY_LOCAL_MACHINE, key_); }

    void SetBehaviour(const TestProviderBehaviour& behaviour) {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, key_, kBehaviourValue,
                             MakeRegistryData(REG_BINARY, &behaviour, sizeof(behaviour)));
    }
    // The calls since the last time they were taken.
    std::wstring TakeCalls() {
        const std::wstring calls = ReadRegistryString(HKEY_LOCAL_MACHINE, key_, kCallsValue).value_or(L"");
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, key_, kCallsValue, std::nullopt);
        return calls;
    }

private:
    const std::wstring key_;
};

} // namespace harness
