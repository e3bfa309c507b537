// Registry and service state of the test prefix, set up and checked by the tests.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>

namespace harness {

std::optional<std::wstring> ReadRegistryString(HKEY root, const std::wstring& path, const std::wstring& name);
bool RegistryKeyExists(HKEY root, const std::wstring& path);
void WriteRegistryString(HKEY root, const std::wstring& path, const std::wstring& name,
                         const std::wstring& value);
void WriteRegistryDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD value);
void DeleteRegistryTree(HKEY root, const std::wstring& path);

// Gives an HKLM key, made when missing, the access list of SDDL text and its
// owner when the text names one; the registry's status.
LSTATUS SetKeySecurity(const std::wstring& path, const wchar_t* sddl);

// A value as stored: its type and its bytes.
struct RegistryData {
    DWORD type = REG_NONE;
    std::vector<BYTE> bytes;
    bool operator==(const RegistryData&) const = default;
};
// Stored forms: raw bytes; UTF-16 text with its terminator; a DWORD.
RegistryData MakeRegistryData(DWORD type, const void* data, std::size_t size);
RegistryData RegistryText(std::wstring_view text, DWORD type = REG_SZ);
RegistryData RegistryDwordData(DWORD value, DWORD type = REG_DWORD);
std::optional<RegistryData> ReadRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name);
std::optional<DWORD> ReadRegistryDword(HKEY root, const std::wstring& path, const std::wstring& name);
// Writes `data`, or deletes the value when there is none.
void RestoreRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name,
                          const std::optional<RegistryData>& data);

// A program or driver built beside the test programs.
std::wstring TestProgramPath(const std::wstring& name);

// The state of service `name`, 0 when there is none.
DWORD ServiceState(const std::wstring& name);
// Polls `condition` until it holds or `milliseconds` pass; whether it held.
bool WaitUntil(const std::function<bool()>& condition, DWORD milliseconds = 5000);
// "type start-type error-control|binary path|load order group|display name"
// of service `name`; empty when there is none.
std::wstring ServiceConfigText(const std::wstring& name);
// Waits up to five seconds for service `name` to be in `state` (0: gone); the state it ends in.
DWORD WaitForServiceState(const std::wstring& name, DWORD state);
// Stops and deletes the service, and waits until the service manager lets it go.
void StopAndDeleteService(const std::wstring& name);

// A demand-start kernel driver service running the test driver; removed when it goes away.
class TestDriverService {
public:
    explicit TestDriverService(const std::wstring& name);
    ~TestDriverService();
    TestDriverService(const TestDriverService&) = delete;
    TestDriverService& operator=(const TestDriverService&) = delete;

    void Start();

private:
    std::wstring name_;
};

} // namespace harness
