#include "test_provider.h"

#include <cwchar>
#include <utility>

#include <wincrypt.h>

#include "machine.h"

namespace harness {
namespace {

std::wstring SettingsPath(const std::wstring& name) {
    return std::wstring(kTestCspKey) + L"\\" + name;
}

std::wstring RegistrationPath(const std::wstring& name) {
    return std::wstring(kProviderRegistrationKey) + L"\\" + name;
}

std::optional<std::wstring> DefaultProvider(DWORD type, DWORD which) {
    wchar_t name[260];
    DWORD size = sizeof(name);
    if (!CryptGetDefaultProviderW(type, nullptr, which, name, &size)) {
        return std::nullopt;
    }
    return std::wstring(name);
}

} // namespace

void RegisterTestProvider(const std::wstring& name, DWORD type, const TestProviderBehaviour& behaviour) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, RegistrationPath(name), L"Image Path",
                        TestProgramPath(L"test_csp.dll"));
    WriteRegistryDword(HKEY_LOCAL_MACHINE, RegistrationPath(name), L"Type", type);
    SetTestProviderBehaviour(name, behaviour);
    ClearTestProviderCalls(name);
}

void SetTestProviderBehaviour(const std::wstring& name, const TestProviderBehaviour& behaviour) {
    const std::wstring path = SettingsPath(name);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, path, kAcquireResultValue, behaviour.acquireResult);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, path, kVersionValue, behaviour.version);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, path, kParam129Value, behaviour.answersParam129 ? 1 : 0);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, path, kParam138Value, behaviour.answersParam138 ? 1 : 0);
    WriteRegistryDword(HKEY_LOCAL_MACHINE, path, kHardwareRngResultValue, behaviour.hardwareRngResult);
}

void UnregisterTestProvider(const std::wstring& name) {
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, RegistrationPath(name));
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, SettingsPath(name));
}

std::vector<TestProviderCall> TestProviderCalls(const std::wstring& name) {
    std::vector<TestProviderCall> calls;
    const std::wstring path = SettingsPath(name) + L"\\" + kCallsSubkey;
    for (int number = 1;; ++number) {
        wchar_t value[16];
        swprintf(value, 16, L"%04d", number);
        const std::optional<std::wstring> text = ReadRegistryString(HKEY_LOCAL_MACHINE, path, value);
        if (!text) {
            return calls;
        }
        wchar_t function[64] = L"";
        TestProviderCall call;
        unsigned long param = 0;
        unsigned long flags = 0;
        if (swscanf(text->c_str(), L"%63ls %lu %lx", function, &param, &flags) == 3) {
            call.function = function;
            call.param = param;
            call.flags = flags;
        }
        calls.push_back(std::move(call));
    }
}

void ClearTestProviderCalls(const std::wstring& name) {
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, SettingsPath(name) + L"\\" + kCallsSubkey);
}

TestProvider::TestProvider(std::wstring name, DWORD type, const TestProviderBehaviour& behaviour)
    : name_(std::move(name)) {
    RegisterTestProvider(name_, type, behaviour);
}

TestProvider::~TestProvider() {
    UnregisterTestProvider(name_);
}

std::optional<std::wstring> MachineDefaultProvider(DWORD type) {
    return DefaultProvider(type, CRYPT_MACHINE_DEFAULT);
}

std::optional<std::wstring> UserDefaultProvider(DWORD type) {
    return DefaultProvider(type, CRYPT_USER_DEFAULT);
}

} // namespace harness
