#include "drivers/driver_rules.h"

namespace setuputils {
namespace {

constexpr std::wstring_view kMsInfix = L".ms";
constexpr std::size_t kExtensionChars = 4; // ".inf"

constexpr DeferredDriverActions kActions32 = {L"KSInstall", L"KSRollback", L"KSUninstall", L"x86"};
constexpr DeferredDriverActions kActions64 = {L"KSInstall64", L"KSRollback64", L"KSUninstall64", L"64"};

bool ReferenceKeepsPackage(ComponentStates reference) {
    if (reference.action == kStateLocal) {
        return true;
    }
    return reference.installed == kStateLocal && reference.action != kStateAdvertised &&
           reference.action != kStateAbsent;
}

} // namespace

DriverPackageStep DecideDriverPackageStep(ComponentStates component, bool hasReference,
                                          ComponentStates reference) {
    if (component.action == kStateLocal && (!hasReference || ReferenceKeepsPackage(reference))) {
        return DriverPackageStep::Install;
    }
    if (component.installed != kStateAbsent && component.action == kStateAbsent) {
        return DriverPackageStep::Uninstall;
    }
    return DriverPackageStep::None;
}

std::wstring AddMsInfSuffix(std::wstring_view fileName) {
    std::wstring name(fileName);
    if (name.size() >= kExtensionChars) {
        name.insert(name.size() - kExtensionChars, kMsInfix);
    }
    return name;
}

std::wstring ServiceNameFromComponent(std::wstring_view component) {
    auto position = component.find(L"64");
    if (position != std::wstring_view::npos && position > 0) {
        component = component.substr(0, position);
    }
    return std::wstring(component);
}

DeferredDriverActions ChooseDeferredDriverActions(std::wstring_view versionNT64) {
    return versionNT64.empty() ? kActions32 : kActions64;
}

} // namespace setuputils
