// The test provider (test_csp.dll), registered as `name` of `type` while a TestProvider lives.
// Its name says how it behaves: "Broken" cannot be acquired, "Current" is of version 3 (else 2) and
// answers parameters 129 and 138, "Refusing" refuses the hardware generator. It appends each call
// to the name's key: TakeCalls() gives "CPAcquireContext 0 0xF0000040;CPReleaseContext 0 0x0;".
#pragma once

#include <string>

#include <windows.h>

#include "machine.h"

namespace harness {

inline constexpr wchar_t kCallsValue[] = L"TestCalls"; // REG_SZ "<function> <param> 0x<flags>;..."

inline std::wstring ProviderKey(const std::wstring& name) {
    return L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\" + name;
}

class TestProvider {
public:
    TestProvider(const std::wstring& name, DWORD type) : key_(ProviderKey(name)) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, key_, L"Image Path", TestProgramPath(L"test_csp.dll"));
        WriteRegistryDword(HKEY_LOCAL_MACHINE, key_, L"Type", type);
    }
    ~TestProvider() { DeleteRegistryTree(HKEY_LOCAL_MACHINE, key_); }

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
