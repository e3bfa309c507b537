#include "drivers/driver_rules.h"

#include <gtest/gtest.h>

#include <string_view>

namespace setuputils {
namespace {

constexpr int U = kStateUnknown, A = kStateAdvertised, X = kStateAbsent, L = kStateLocal;
constexpr auto kNone = DriverPackageStep::None;
constexpr auto kInstall = DriverPackageStep::Install;
constexpr auto kUninstall = DriverPackageStep::Uninstall;

TEST(DriverRules, DecideDriverPackageStep) {
    struct Case {
        ComponentStates component;
        bool hasReference;
        ComponentStates reference;
        DriverPackageStep expected;
    };
    const Case cases[] = {
        // Installing with no reference component; the reference states are then ignored.
        {{X, L}, false, {X, X}, kInstall},
        {{L, L}, false, {A, A}, kInstall},
        // Installing with a reference: it must be installed, or stay installed.
        {{X, L}, true, {X, L}, kInstall},
        {{X, L}, true, {L, L}, kInstall},
        {{X, L}, true, {L, U}, kInstall},
        {{X, L}, true, {L, X}, kNone},
        {{X, L}, true, {L, A}, kNone},
        {{X, L}, true, {X, U}, kNone},
        {{X, L}, true, {A, U}, kNone},
        {{X, L}, true, {U, U}, kNone},
        {{X, L}, true, {X, A}, kNone},
        // A local component whose reference goes away is left alone, not removed.
        {{L, L}, true, {L, X}, kNone},
        // Removal: whatever the component was, unless it was absent already.
        {{L, X}, false, {X, X}, kUninstall},
        {{U, X}, false, {X, X}, kUninstall},
        {{A, X}, false, {X, X}, kUninstall},
        {{L, X}, true, {L, L}, kUninstall},
        {{X, X}, false, {X, X}, kNone},
        {{X, X}, true, {L, L}, kNone},
        // Advertising or leaving unchanged does nothing.
        {{L, A}, false, {X, X}, kNone},
        {{L, U}, false, {X, X}, kNone},
        {{X, U}, true, {L, L}, kNone},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "component " << c.component.installed << "/" << c.component.action << " reference "
                     << c.hasReference << " " << c.reference.installed << "/" << c.reference.action);
        EXPECT_EQ(DecideDriverPackageStep(c.component, c.hasReference, c.reference), c.expected);
    }
}

TEST(DriverRules, AddMsInfSuffixGoesBeforeTheLastFourCharacters) {
    EXPECT_EQ(AddMsInfSuffix(L"drv.inf"), L"drv.ms.inf");
    EXPECT_EQ(AddMsInfSuffix(L"SHORT~1.INF|long.inf"), L"SHORT~1.INF|long.ms.inf");
    EXPECT_EQ(AddMsInfSuffix(L".inf"), L".ms.inf");
    EXPECT_EQ(AddMsInfSuffix(L"inf"), L"inf");
    EXPECT_EQ(AddMsInfSuffix(L""), L"");
}

TEST(DriverRules, ServiceNameFromComponentCutsBeforeTheFirst64) {
    EXPECT_EQ(ServiceNameFromComponent(L"nvdrv64"), L"nvdrv");
    EXPECT_EQ(ServiceNameFromComponent(L"nv64drv64"), L"nv");
    EXPECT_EQ(ServiceNameFromComponent(L"x64"), L"x");
    EXPECT_EQ(ServiceNameFromComponent(L"664"), L"6");
    EXPECT_EQ(ServiceNameFromComponent(L"nvdrv"), L"nvdrv");
    EXPECT_EQ(ServiceNameFromComponent(L"nv6x4"), L"nv6x4");
    EXPECT_EQ(ServiceNameFromComponent(L""), L"");
    // A leading "64" is part of the name, and so is any later one then.
    EXPECT_EQ(ServiceNameFromComponent(L"64drv64"), L"64drv64");
    EXPECT_EQ(ServiceNameFromComponent(L"64"), L"64");
}

TEST(DriverRules, ChooseDeferredDriverActionsByPlatform) {
    using W = std::wstring_view;
    DeferredDriverActions x86 = ChooseDeferredDriverActions(L"");
    EXPECT_EQ(W(x86.install), L"KSInstall");
    EXPECT_EQ(W(x86.rollback), L"KSRollback");
    EXPECT_EQ(W(x86.uninstall), L"KSUninstall");
    EXPECT_EQ(W(x86.marker), L"x86");
    for (W versionNT64 : {W(L"603"), W(L"0"), W(L" ")}) {
        DeferredDriverActions x64 = ChooseDeferredDriverActions(versionNT64);
        EXPECT_EQ(W(x64.install), L"KSInstall64");
        EXPECT_EQ(W(x64.rollback), L"KSRollback64");
        EXPECT_EQ(W(x64.uninstall), L"KSUninstall64");
        EXPECT_EQ(W(x64.marker), L"64");
    }
}

} // namespace
} // namespace setuputils
