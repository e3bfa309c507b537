// Lookups in a driver package's INF: the install section and its service.
#pragma once

#include <string>

#include <windows.h>
#include <setupapi.h>

#include "frame/install_log.h"

namespace setuputils {

inline constexpr wchar_t kDefaultInstallSection[] = L"DefaultInstall";
inline constexpr wchar_t kServicesSectionSuffix[] = L".Services";
inline constexpr wchar_t kAddServiceKey[] = L"AddService";

// Reads field `field` of an INF line. Returns false when it cannot be read.
bool ReadInfField(INFCONTEXT& line, DWORD field, std::wstring& value);

// The install section named by the first model of the first manufacturer, or
// an empty text when there is none; each step is reported through `log`.
std::wstring FindInstallSection(HINF inf, InstallLog& log);

// FindInstallSection, or "DefaultInstall" when it finds none.
std::wstring InstallSectionOrDefault(HINF inf, InstallLog& log);

enum class InfLookup { Found, LineMissing, FieldUnreadable };

// The service named by the first "AddService" line of `servicesSection`.
InfLookup FindServiceName(HINF inf, const std::wstring& servicesSection, std::wstring& serviceName);

} // namespace setuputils
