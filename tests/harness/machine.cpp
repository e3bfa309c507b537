#include "machine.h"

#include <cstring>
#include <cwchar>
#include <functional>
#include <stdexcept>
#include <vector>

#include <sddl.h>
#include <shlwapi.h>

#include "frame/handles.h"

namespace harness {
namespace {

constexpr DWORD kPollMilliseconds = 20;

using setuputils::RegKey;
using setuputils::ServiceHandle;

RegKey CreateKey(HKEY root, const std::wstring& path) {
    RegKey key;
    LSTATUS status =
        RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, key.put(), nullptr);
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error("RegCreateKeyExW failed: " + std::to_string(status));
    }
    return key;
}

ServiceHandle OpenManager() {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        throw std::runtime_error("OpenSCManagerW failed: " + std::to_string(GetLastError()));
    }
    return manager;
}

} // namespace

std::optional<std::wstring> ReadRegistryString(HKEY root, const std::wstring& path,
                                               const std::wstring& name) {
    const std::optional<RegistryData> data = ReadRegistryValue(root, path, name);
    if (!data || (data->type != REG_SZ && data->type != REG_EXPAND_SZ)) {
        return std::nullopt;
    }
    std::wstring text(reinterpret_cast<const wchar_t*>(data->bytes.data()),
                      data->bytes.size() / sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

bool RegistryKeyExists(HKEY root, const std::wstring& path) {
    RegKey key;
    return RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, key.put()) == ERROR_SUCCESS;
}

void WriteRegistryString(HKEY root, const std::wstring& path, const std::wstring& name,
                         const std::wstring& value) {
    RestoreRegistryValue(root, path, name, RegistryText(value));
}

void WriteRegistryDword(HKEY root, const std::wstring& path, const std::wstring& name, DWORD value) {
    RestoreRegistryValue(root, path, name, RegistryDwordData(value));
}

LSTATUS SetKeySecurity(const std::wstring& path, const wchar_t* sddl) {
    setuputils::LocalMemory descriptor;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1,
                                                         reinterpret_cast<void**>(descriptor.put()), nullptr);
    PSID owner = nullptr;
    BOOL defaulted = FALSE;
    GetSecurityDescriptorOwner(descriptor.get(), &owner, &defaulted);
    const SECURITY_INFORMATION parts = DACL_SECURITY_INFORMATION | (owner ? OWNER_SECURITY_INFORMATION : 0);
    RegKey key;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, WRITE_DAC | (owner ? WRITE_OWNER : 0),
                    nullptr, key.put(), nullptr);
    return RegSetKeySecurity(key.get(), parts, descriptor.get());
}

RegistryData MakeRegistryData(DWORD type, const void* data, std::size_t size) {
    const BYTE* bytes = static_cast<const BYTE*>(data);
    return {type, std::vector<BYTE>(bytes, bytes + size)};
}

RegistryData RegistryText(std::wstring_view text, DWORD type) {
    RegistryData data = MakeRegistryData(type, text.data(), text.size() * sizeof(wchar_t));
    data.bytes.insert(data.bytes.end(), sizeof(wchar_t), 0);
    return data;
}

RegistryData RegistryDwordData(DWORD value, DWORD type) {
    return MakeRegistryData(type, &value, sizeof(value));
}

std::optional<RegistryData> ReadRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name) {
    RegKey key;
    RegistryData data;
    DWORD size = 0;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_QUERY_VALUE, key.put()) != ERROR_SUCCESS ||
        RegQueryValueExW(key.get(), name.c_str(), nullptr, &data.type, nullptr, &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    data.bytes.resize(size);
    if (RegQueryValueExW(key.get(), name.c_str(), nullptr, &data.type, data.bytes.data(), &size) !=
        ERROR_SUCCESS) {
        return std::nullopt;
    }
    data.bytes.resize(size);
    return data;
}

std::optional<DWORD> ReadRegistryDword(HKEY root, const std::wstring& path, const std::wstring& name) {
    const std::optional<RegistryData> data = ReadRegistryValue(root, path, name);
    DWORD value = 0;
    if (!data || data->type != REG_DWORD || data->bytes.size() != sizeof(value)) {
        return std::nullopt;
    }
    memcpy(&value, data->bytes.data(), sizeof(value));
    return value;
}

void RestoreRegistryValue(HKEY root, const std::wstring& path, const std::wstring& name,
                          const std::optional<RegistryData>& data) {
    RegKey key = CreateKey(root, path);
    if (!data) {
        RegDeleteValueW(key.get(), name.c_str());
        return;
    }
    RegSetValueExW(key.get(), name.c_str(), 0, data->type, data->bytes.data(),
                   static_cast<DWORD>(data->bytes.size()));
}

void DeleteRegistryTree(HKEY root, const std::wstring& path) {
    SHDeleteKeyW(root, path.c_str());
}

std::wstring TestProgramPath(const std::wstring& name) {
    wchar_t path[MAX_PATH];
    const std::wstring program(path, GetModuleFileNameW(nullptr, path, MAX_PATH));
    return program.substr(0, program.find_last_of(L'\\') + 1) + name;
}

TestDriverService::TestDriverService(const std::wstring& name) : name_(name) {
    std::wstring image = L"C:\\windows\\system32\\drivers\\" + name + L".sys";
    if (!CopyFileW(TestProgramPath(L"test_driver.sys").c_str(), image.c_str(), FALSE)) {
        throw std::runtime_error("cannot copy the test driver: " + std::to_string(GetLastError()));
    }
    ServiceHandle manager = OpenManager();
    ServiceHandle service(CreateServiceW(manager.get(), name.c_str(), name.c_str(), SERVICE_ALL_ACCESS,
                                         SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL,
                                         image.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service) {
        throw std::runtime_error("CreateServiceW failed: " + std::to_string(GetLastError()));
    }
}

TestDriverService::~TestDriverService() {
    StopAndDeleteService(name_);
}

void TestDriverService::Start() {
    ServiceHandle manager = OpenManager();
    ServiceHandle service(OpenServiceW(manager.get(), name_.c_str(), SERVICE_ALL_ACCESS));
    if (!service || !StartServiceW(service.get(), 0, nullptr)) {
        throw std::runtime_error("StartServiceW failed: " + std::to_string(GetLastError()));
    }
    WaitForServiceState(name_, SERVICE_RUNNING);
}

DWORD ServiceState(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    SERVICE_STATUS status{};
    return service && QueryServiceStatus(service.get(), &status) ? status.dwCurrentState : 0;
}

bool WaitUntil(const std::function<bool()>& condition, DWORD milliseconds) {
    const ULONGLONG deadline = GetTickCount64() + milliseconds;
    while (!condition()) {
        if (GetTickCount64() >= deadline) {
            return false;
        }
        Sleep(kPollMilliseconds);
    }
    return true;
}

DWORD WaitForServiceState(const std::wstring& name, DWORD state) {
    WaitUntil([&] { return ServiceState(name) == state; });
    return ServiceState(name);
}

std::wstring ServiceConfigText(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_QUERY_CONFIG));
    DWORD size = 0;
    QueryServiceConfigW(service.get(), nullptr, 0, &size);
    std::vector<BYTE> buffer(size);
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    if (!service || size == 0 || !QueryServiceConfigW(service.get(), config, size, &size)) {
        return L"";
    }
    wchar_t numbers[40];
    swprintf(numbers, 40, L"%#lx %lu %lu|", config->dwServiceType, config->dwStartType,
             config->dwErrorControl);
    return numbers + std::wstring(config->lpBinaryPathName) + L"|" + config->lpLoadOrderGroup + L"|" +
           config->lpDisplayName;
}

void StopAndDeleteService(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS)); service) {
        SERVICE_STATUS status{};
        if (ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) {
            WaitForServiceState(name, SERVICE_STOPPED);
        }
        DeleteService(service.get());
    }
    WaitForServiceState(name, 0);
}

} // namespace harness
