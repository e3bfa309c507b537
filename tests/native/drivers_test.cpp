#include "drivers/driver_rules.h"

#include <gtest/gtest.h>

namespace setuputils {
namespace {

constexpr int U = kStateUnknown, A = kStateAdvertised, X = kStateAbsent, L = kStateLocal;
constexpr auto kNone = DriverPackageStep::None;
constexpr auto kInstall = DriverPackageStep::Install;
constexpr auto kUninstall = DriverPackageStep::Uninstall;

// Installing: without a reference its states are ignored; with one, it must be
// installed or stay installed (a local component whose reference goes away is
// left alone). Removal: whatever the component was, unless absent already.
// Advertising or leaving unchanged does nothing.
TEST(DriverRules, DecideDriverPackageStep) {
    using Case = std::tuple<ComponentStates, bool, ComponentStates, DriverPackageStep>;
    const Case cases[] = {{{X, L}, false, {X, X}, kInstall},   {{X, L}, true, {X, L}, kInstall},
                          {{X, L}, true, {L, U}, kInstall},    {{X, L}, true, {L, X}, kNone},
                          {{X, L}, true, {L, A}, kNone},       {{X, L}, true, {X, U}, kNone},
                          {{L, L}, true, {L, X}, kNone},       {{L, X}, false, {X, X}, kUninstall},
                          {{U, X}, false, {X, X}, kUninstall}, {{A, X}, false, {X, X}, kUninstall},
                          {{L, X}, true, {L, L}, kUninstall},  {{X, X}, false, {X, X}, kNone},
                          {{L, A}, false, {X, X}, kNone},      {{L, U}, false, {X, X}, kNone}};
    for (const auto& [component, hasReference, reference, expected] : cases) {
        SCOPED_TRACE(testing::Message()
                     << component.installed << "/" << component.action << " " << hasReference << " "
                     << reference.installed << "/" << reference.action);
        EXPECT_EQ(DecideDriverPackageStep(component, hasReference, reference), expected);
    }
}

// ".ms" goes before the last four characters when there are four; the service
// name is cut before the first "64" after the first character.
TEST(DriverRules, NamesFromTheInfAndTheComponent) {
    using Cases = std::initializer_list<std::pair<const wchar_t*, const wchar_t*>>;
    for (auto [inf, expected] : Cases{
             {L"S~1.INF|l.inf", L"S~1.INF|l.ms.inf"}, {L".inf", L".ms.inf"}, {L"inf", L"inf"}, {L"", L""}}) {
        EXPECT_EQ(AddMsInfSuffix(inf), expected) << inf;
    }
    for (auto [component, expected] : Cases{{L"nv64drv64", L"nv"},
                                            {L"x64", L"x"},
                                            {L"64drv64", L"64drv64"},
                                            {L"nvdrv", L"nvdrv"},
                                            {L"", L""}}) {
        EXPECT_EQ(ServiceNameFromComponent(component), expected) << component;
    }
}

TEST(DriverRules, ChooseDeferredDriverActionsByPlatform) {
    for (const wchar_t* versionNT64 : {L"", L"603", L" "}) {
        const DeferredDriverActions a = ChooseDeferredDriverActions(versionNT64);
        EXPECT_EQ(std::wstring(a.install) + L"," + a.rollback + L"," + a.uninstall + L"," + a.marker,
                  *versionNT64 ? L"KSInstall64,KSRollback64,KSUninstall64,64"
                               : L"KSInstall,KSRollback,KSUninstall,x86");
    }
}

} // namespace
} // namespace setuputils
