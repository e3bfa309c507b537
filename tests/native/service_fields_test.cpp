#include "services/service_fields.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace setuputils {
namespace {

TEST(ServiceFields, CustomActionDataSplitsAtTheFirstSlashesTheLastFieldTakingTheRest) {
    // CustomActionData, then name, display name, flag and group.
    const wchar_t* const creations[][5] = {
        {L"nvcsphclm/Host helper/1/Card Users", L"nvcsphclm", L"Host helper", L"1", L"Card Users"},
        {L"nvcsp", L"nvcsp", L"", L"", L""},
        {L"", L"", L"", L"", L""},
        {L"a/b", L"a", L"b", L"", L""},
        {L"a//", L"a", L"", L"", L""},
        {L"a/b/c/d/e/", L"a", L"b", L"c", L"d/e/"},
    };
    for (const auto& c : creations) {
        const CreateServiceData fields = SplitCreateServiceData(c[0]);
        EXPECT_EQ(fields.name + L"|" + fields.displayName + L"|" + fields.nonInteractive + L"|" +
                      fields.group,
                  std::wstring(c[1]) + L"|" + c[2] + L"|" + c[3] + L"|" + c[4]);
    }
    const wchar_t* const removals[][3] = {{L"nvcsp/Users/x", L"nvcsp", L"Users/x"},
                                          {L"nvcsp", L"nvcsp", L""},
                                          {L"/g", L"", L"g"},
                                          {L"", L"", L""}};
    for (const auto& c : removals) {
        const RemoveServiceData fields = SplitRemoveServiceData(c[0]);
        EXPECT_EQ(fields.name + L"|" + fields.group, std::wstring(c[1]) + L"|" + c[2]);
    }
}

TEST(ServiceFields, HostServiceTypeAndStartType) {
    EXPECT_EQ(HostServiceStartType(L"nvcsphclm"), 3u);
    for (const wchar_t* other : {L"NVCSPHCLM", L"nvcsphclm ", L"nvcsp", L""}) {
        EXPECT_EQ(HostServiceStartType(other), 2u) << other;
    }
    EXPECT_EQ(HostServiceType(L""), 0x110u);
    EXPECT_EQ(HostServiceType(L"1"), 0x10u);
    EXPECT_EQ(HostServiceType(L"0"), 0x10u) << "any text counts";
}

TEST(ServiceFields, UnprotectedConfigurationCutsTheOptionAndOwnsTheProcess) {
    struct Case {
        const wchar_t* path;
        std::uint32_t type;
        const wchar_t* newPath; // null: no change
        std::uint32_t newType;
    };
    const Case cases[] = {
        {L"svchost.exe -k nvcsp -p", 0x20, L"svchost.exe -k nvcsp", 0x10},
        {L"svchost.exe -k nvcsp -p -s x", 0x10, L"svchost.exe -k nvcsp", 0x10},
        {L"svchost.exe -k nvcsp -pa", 0x10, L"svchost.exe -k nvcsp", 0x10},
        {L"svchost.exe -k nvcsp", 0x120, L"svchost.exe -k nvcsp", 0x110},
        {L"svchost.exe -k nvcsp", 0x30, L"svchost.exe -k nvcsp", 0x10},
        {L"svchost.exe -k nvcsp", 0x10, nullptr, 0},
        {L"svchost.exe -k nvcsp", 0x110, nullptr, 0},
        {L"svchost.exe -k nvcsp -P", 0x10, nullptr, 0},
        {L"svchost.exe -k nvcsp-p", 0x10, nullptr, 0},
    };
    for (const Case& c : cases) {
        const auto change = UnprotectedConfiguration(c.path, c.type);
        ASSERT_EQ(change.has_value(), c.newPath != nullptr) << c.path << " " << c.type;
        if (change) {
            EXPECT_EQ(change->binaryPath, c.newPath);
            EXPECT_EQ(change->type, c.newType) << c.path << " " << c.type;
        }
    }
}

TEST(ServiceFields, OnlyBootSystemAndDisabledNeedAutomaticStart) {
    for (const std::uint32_t startType : {0u, 1u, 4u}) {
        EXPECT_TRUE(NeedsAutomaticStart(startType)) << startType;
    }
    EXPECT_FALSE(NeedsAutomaticStart(2));
    EXPECT_FALSE(NeedsAutomaticStart(3));
}

} // namespace
} // namespace setuputils
