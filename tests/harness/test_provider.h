// A test cryptographic service provider for the tests: bin/test_csp.dll,
// registered under any number of provider names, each with a behaviour of its
// own, and recording every call CryptoAPI dispatches into it.
//
//     TestProvider gost(L"Test GOST Provider", 75, {.version = 0x300, .answersParam129 = true});
//     ... run an action that acquires "Test GOST Provider" ...
//     EXPECT_EQ(gost.Calls()[0].function, L"CPAcquireContext");
//
// Registration is what advapi32 loads a provider from:
//   HKLM\SOFTWARE\Microsoft\Cryptography\Defaults\Provider\<name>
//     "Image Path" (REG_SZ, the full path of test_csp.dll), "Type" (REG_DWORD)
// Wine checks no signature. The DLL exports all 25 CP* entry points; Wine's
// advapi32 refuses a provider that lacks any of them but CPDuplicateHash and
// CPDuplicateKey (acquiring fails with NTE_PROVIDER_DLL_FAIL, 0x8009001D).
//
// Behaviour and records live under kTestCspKey\<name> (HKLM, 64-bit view) and
// are read by the DLL at every call, so a test may change them between calls:
//   "AcquireResult"      REG_DWORD  0: CPAcquireContext succeeds; else it fails with this error
//   "Version"            REG_DWORD  the PP_VERSION answer (default 0x200: version 2.0)
//   "Param129"           REG_DWORD  nonzero: parameter 129 answers with 4 bytes
//   "Param138"           REG_DWORD  nonzero: parameter 138 answers with 20 bytes
//   "HardwareRngResult"  REG_DWORD  0: CPSetProvParam(PP_USE_HARDWARE_RNG) succeeds; else fails with it
//   Calls\<nnnn>         REG_SZ     one value per call, in order: "<function> <param> 0x<flags>"
// CPGetProvParam also answers PP_NAME, PP_IMPTYPE and PP_PROVTYPE; CPGenRandom
// fills the buffer; every other entry point fails with E_NOTIMPL.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <windows.h>

namespace harness {

inline constexpr wchar_t kTestCspKey[] = L"SOFTWARE\\SetupUtilsTests\\TestCsp";
inline constexpr wchar_t kProviderRegistrationKey[] =
    L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider";

inline constexpr wchar_t kAcquireResultValue[] = L"AcquireResult";
inline constexpr wchar_t kVersionValue[] = L"Version";
inline constexpr wchar_t kParam129Value[] = L"Param129";
inline constexpr wchar_t kParam138Value[] = L"Param138";
inline constexpr wchar_t kHardwareRngResultValue[] = L"HardwareRngResult";
inline constexpr wchar_t kCallsSubkey[] = L"Calls";

struct TestProviderBehaviour {
    DWORD acquireResult = 0; // 0: acquiring works; else the error it fails with
    DWORD version = 0x200;   // PP_VERSION: major version in bits 8-15
    bool answersParam129 = false;
    bool answersParam138 = false;
    DWORD hardwareRngResult = 0; // 0: PP_USE_HARDWARE_RNG accepted; else the error
};

// One call into the provider. `param` is the parameter number of
// CPGetProvParam/CPSetProvParam and the length of CPGenRandom, else 0.
struct TestProviderCall {
    std::wstring function;
    DWORD param = 0;
    DWORD flags = 0;
    bool operator==(const TestProviderCall&) const = default;
};

// "CPGetProvParam 5 0x0", for test failure messages.
inline std::ostream& operator<<(std::ostream& out, const TestProviderCall& call) {
    return out << std::string(call.function.begin(), call.function.end()) << ' ' << call.param << " 0x"
               << std::hex << call.flags << std::dec;
}

// Registers test_csp.dll as provider `name` of `type` with `behaviour`, and
// clears its call records.
void RegisterTestProvider(const std::wstring& name, DWORD type, const TestProviderBehaviour& behaviour = {});
// Changes the behaviour of a registered test provider.
void SetTestProviderBehaviour(const std::wstring& name, const TestProviderBehaviour& behaviour);
// Removes the registration, the behaviour and the records.
void UnregisterTestProvider(const std::wstring& name);
std::vector<TestProviderCall> TestProviderCalls(const std::wstring& name);
void ClearTestProviderCalls(const std::wstring& name);

// Registered for its lifetime.
class TestProvider {
public:
    TestProvider(std::wstring name, DWORD type, const TestProviderBehaviour& behaviour = {});
    ~TestProvider();
    TestProvider(const TestProvider&) = delete;
    TestProvider& operator=(const TestProvider&) = delete;

    const std::wstring& name() const { return name_; }
    void SetBehaviour(const TestProviderBehaviour& behaviour) { SetTestProviderBehaviour(name_, behaviour); }
    std::vector<TestProviderCall> Calls() const { return TestProviderCalls(name_); }
    void ClearCalls() { ClearTestProviderCalls(name_); }

private:
    std::wstring name_;
};

// The machine default provider of `type`, as CryptGetDefaultProviderW reads it.
std::optional<std::wstring> MachineDefaultProvider(DWORD type);
std::optional<std::wstring> UserDefaultProvider(DWORD type);

} // namespace harness
