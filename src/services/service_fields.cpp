#include "services/service_fields.h"

#include "frame/text_fields.h"

namespace setuputils {
namespace {

constexpr wchar_t kFieldSeparator = L'/';
constexpr std::wstring_view kHelperServiceName = L"nvcsphclm";
constexpr std::wstring_view kProtectedHostOption = L" -p";
constexpr std::uint32_t kProcessTypeBits = kServiceOwnProcess | kServiceShareProcess;

} // namespace

CreateServiceData SplitCreateServiceData(std::wstring_view data) {
    CreateServiceData fields;
    fields.name = TakeField(data, kFieldSeparator);
    fields.displayName = TakeField(data, kFieldSeparator);
    fields.nonInteractive = TakeField(data, kFieldSeparator);
    fields.group = std::wstring(data);
    return fields;
}

RemoveServiceData SplitRemoveServiceData(std::wstring_view data) {
    RemoveServiceData fields;
    fields.name = TakeField(data, kFieldSeparator);
    fields.group = std::wstring(data);
    return fields;
}

std::uint32_t HostServiceStartType(std::wstring_view name) {
    return name == kHelperServiceName ? kServiceDemandStart : kServiceAutoStart;
}

std::uint32_t HostServiceType(std::wstring_view nonInteractive) {
    return nonInteractive.empty() ? kServiceOwnProcess | kServiceInteractive : kServiceOwnProcess;
}

std::uint32_t OwnProcessType(std::uint32_t type) {
    return (type & ~kProcessTypeBits) | kServiceOwnProcess;
}

std::optional<ServiceReconfiguration> UnprotectedConfiguration(std::wstring_view binaryPath,
                                                               std::uint32_t type) {
    const std::size_t option = binaryPath.find(kProtectedHostOption);
    if (option == std::wstring_view::npos && (type & kServiceShareProcess) == 0) {
        return std::nullopt;
    }
    return ServiceReconfiguration{std::wstring(binaryPath.substr(0, option)), OwnProcessType(type)};
}

bool NeedsAutomaticStart(std::uint32_t startType) {
    return startType != kServiceAutoStart && startType != kServiceDemandStart;
}

} // namespace setuputils
