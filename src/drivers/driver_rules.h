// Decisions of the driver-package actions that need nothing from the system.
#pragma once

#include <string>
#include <string_view>

namespace setuputils {

// Component states as the installer reports them.
inline constexpr int kStateUnknown = -1;
inline constexpr int kStateAdvertised = 1;
inline constexpr int kStateAbsent = 2;
inline constexpr int kStateLocal = 3;

// NVDriverPackages flags the driver installer interprets; the others are carried along.
inline constexpr unsigned kFlagNoService = 0x1;           // no service of its own
inline constexpr unsigned kFlagDoNotStart = 0x20;         // install the service, do not start it
inline constexpr unsigned kFlagDeleteWithoutStop = 0x100; // on removal, delete the service running

struct ComponentStates {
    int installed = kStateAbsent;
    int action = kStateAbsent;
};

enum class DriverPackageStep { None, Install, Uninstall };

// What this transaction does with a driver package, from the states of its
// component and, when the package names one, of its reference component.
DriverPackageStep DecideDriverPackageStep(ComponentStates component, bool hasReference,
                                          ComponentStates reference);

// From Windows 10 on, the package ships the INF variant named x.ms.inf for
// x.inf: ".ms" goes before the last four characters (inside the long name of a
// short|long value). Names shorter than four characters stay as they are.
std::wstring AddMsInfSuffix(std::wstring_view fileName);

// The driver service of a package component: the component name, cut before
// its first "64" when that stands after the first character (nvdrv64 -> nvdrv).
std::wstring ServiceNameFromComponent(std::wstring_view component);

// The deferred actions scheduled for a driver package, by platform.
struct DeferredDriverActions {
    const wchar_t* install;
    const wchar_t* rollback;
    const wchar_t* uninstall;
    const wchar_t* marker; // logged when a package is scheduled
};

// "VersionNT64" empty or unset: the 32-bit names; set: the "64" names.
DeferredDriverActions ChooseDeferredDriverActions(std::wstring_view versionNT64);

} // namespace setuputils
