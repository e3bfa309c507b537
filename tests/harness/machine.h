// Registry and service state of the test prefix, set up and checked by the tests.
#pragma once

#include <optional>
#include <string>

#include <windows.h>

namespace harness {

std::optional<std::wstring> ReadRegistryString(HKEY root, const std::wstring& path, const std::wstring& name);
bool RegistryKeyExists(HKEY root, const std::wstring& path);
void WriteRegistryString(HKEY root, const std::wstring& path, const std::wstring& name,
                         const std::wstring& value);
void WriteRegistryDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD value);
void DeleteRegistryTree(HKEY root, const std::wstring& path);

// The test kernel driver, built beside the test programs.
std::wstring TestDriverPath();

// A demand-start kernel driver service running the test driver; removed when it goes away.
class TestDriverService {
public:
    explicit TestDriverService(const std::wstring& name);
    ~TestDriverService();
    TestDriverService(const TestDriverService&) = delete;
    TestDriverService& operator=(const TestDriverService&) = delete;

    void Start();
    DWORD State() const;

private:
    std::wstring name_;
};

// DWORD of the reported system major version (RtlGetNtVersionNumbers).
DWORD ReportedMajorVersion();

} // namespace harness
