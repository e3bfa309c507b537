#include "drivers/inf_file.h"

namespace setuputils {
namespace {

constexpr wchar_t kManufacturerSection[] = L"Manufacturer";

} // namespace

bool ReadInfField(INFCONTEXT& line, DWORD field, std::wstring& value) {
    DWORD required = 0;
    if (!SetupGetStringFieldW(&line, field, nullptr, 0, &required) || required == 0) {
        return false;
    }
    std::wstring buffer(required, L'\0');
    if (!SetupGetStringFieldW(&line, field, buffer.data(), required, &required)) {
        return false;
    }
    buffer.resize(wcsnlen(buffer.c_str(), buffer.size()));
    value = std::move(buffer);
    return true;
}

std::wstring FindInstallSection(HINF inf, InstallLog& log) {
    INFCONTEXT line{};
    if (!SetupFindFirstLineW(inf, kManufacturerSection, nullptr, &line)) {
        LogInfo(log, L"SetupFindFirstLine('Manufacturer')");
        return std::wstring();
    }
    std::wstring models;
    if (!ReadInfField(line, 1, models)) {
        LogError(log, L"SetupGetStringField('Manufacturer')");
        return std::wstring();
    }
    LogInfo(log, L"Found Manufacturer: %ls", models.c_str());
    std::wstring targetOs;
    if (ReadInfField(line, 2, targetOs)) {
        LogInfo(log, L"Found TargetOS: %ls", targetOs.c_str());
        models.append(L".").append(targetOs);
    }

    INFCONTEXT model{};
    if (!SetupFindFirstLineW(inf, models.c_str(), nullptr, &model)) {
        LogInfo(log, L"SetupFindFirstLine('%ls')", models.c_str());
        return std::wstring();
    }
    std::wstring installSection;
    if (!ReadInfField(model, 1, installSection)) {
        LogError(log, L"SetupGetStringField('InstallSectionName')");
        return std::wstring();
    }
    LogInfo(log, L"Found InstallSectionName: %ls", installSection.c_str());
    return installSection;
}

std::wstring InstallSectionOrDefault(HINF inf, InstallLog& log) {
    std::wstring section = FindInstallSection(inf, log);
    return section.empty() ? std::wstring(kDefaultInstallSection) : section;
}

InfLookup FindServiceName(HINF inf, const std::wstring& servicesSection, std::wstring& serviceName) {
    INFCONTEXT line{};
    if (!SetupFindFirstLineW(inf, servicesSection.c_str(), kAddServiceKey, &line)) {
        return InfLookup::LineMissing;
    }
    return ReadInfField(line, 1, serviceName) ? InfLookup::Found : InfLookup::FieldUnreadable;
}

} // namespace setuputils
