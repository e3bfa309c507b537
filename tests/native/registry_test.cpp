// The provider's abbreviated registry locations, resolved without a registry.
#include "registry/path_map.h"
#include "registry/registry_status.h"

#include <gtest/gtest.h>

namespace setuputils {
namespace {

const std::wstring kUserRoot = std::wstring(kUserSettingsRoot) + L"S-1-5-21-1-2-3-1000";
const std::wstring kClassId = L"{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";
const std::wstring kClassKey = L"HKCR\\WOW6432Node\\CLSID\\" + kClassId + L"\\InprocServer32";
const std::wstring kConfig = L"HKLM\\SOFTWARE\\Norvane\\Cryptography\\CurrentVersion";
const std::wstring kConfig32 = L"HKLM\\SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion";

RegistryStatus KnownUser(std::wstring& name) {
    name = L"S-1-5-21-1-2-3-1000";
    return kRegistryOk;
}

// "status root\path", then the flags the location adds and a per-user location's remainder.
std::wstring Resolved(const std::wstring& input) {
    MappedKeyPath resolved;
    const RegistryStatus status = ResolveMappedPath(input, KnownUser, resolved);
    std::wstring text = std::to_wstring(status) + L" " +
                        (resolved.root == RegistryRootKey::ClassesRoot ? L"HKCR\\" : L"HKLM\\") +
                        resolved.path;
    if (resolved.extraFlags != 0) {
        text += L" flags " + std::to_wstring(resolved.extraFlags);
    }
    if (resolved.perUser) {
        EXPECT_EQ(resolved.userRoot, kUserRoot);
        text += L" user " + resolved.remainder;
    }
    return text;
}

// Abbreviations match case-insensitively, in order, over their own length only.
TEST(RegistryPathMap, EachLocationReachesItsKey) {
    const std::wstring form = L"\\LICENSE\\InprocServer32";
    const std::wstring failed = std::to_wstring(kRegistryFailure) + L" HKLM\\";
    const std::pair<std::wstring, std::wstring> cases[] = {
        {form + L"\\" + kClassId + L"\\Sub", L"0 " + kClassKey + L"\\Sub"},
        // Whatever the separator is, the 38 characters after it are the class id.
        {L"\\license\\inprocserver32/" + kClassId, L"0 " + kClassKey},
        {form + L"\\" + kClassId.substr(0, 37), failed},
        {form, failed},
        {L"\\GLOBAL\\Readers", L"0 HKLM\\SOFTWARE\\WOW6432Node\\Norvane\\Settings\\Readers"},
        {L"\\POLICIES\\X", L"0 HKLM\\SOFTWARE\\Policies\\X"},
        {L"\\SYSCONTROL\\Lsa", L"0 HKLM\\SYSTEM\\CurrentControlSet\\Control\\Lsa"},
        {L"\\APPPATH32\\a.dll", L"0 " + kConfig32 + L"\\AppPath\\a.dll"},
        {L"\\CONFIG64\\Random", L"0 " + kConfig + L"\\Random"},
        {L"\\config\\Random", L"0 " + kConfig32 + L"\\Random"},
        {L"\\CONFIGURE", L"0 " + kConfig32 + L"URE"},
        {L"\\APPPATH\\a.dll", L"0 " + kConfig + L"\\AppPath\\a.dll"},
        {L"\\Cryptography64\\Defaults", L"0 HKLM\\SOFTWARE\\Microsoft\\Cryptography\\Defaults flags 256"},
        // Everything else is below the user's settings, "\LOCAL" dropped.
        {L"\\LOCAL\\Random\\Seed", L"0 HKLM\\" + kUserRoot + L"\\Random\\Seed user \\Random\\Seed"},
        {L"\\Random", L"0 HKLM\\" + kUserRoot + L"\\Random user \\Random"},
        {L"Random", L"0 HKLM\\" + kUserRoot + L"\\Random user Random"},
        {L"", L"0 HKLM\\" + kUserRoot + L" user "},
    };
    for (const auto& [input, resolved] : cases) {
        EXPECT_EQ(Resolved(input), resolved) << testing::PrintToString(input);
    }
    // Who the user is matters only to per-user locations, and its failure is the resolution's.
    MappedKeyPath unknown;
    auto failing = [](std::wstring&) { return kRegistryFailure; };
    EXPECT_EQ(ResolveMappedPath(L"\\Random", failing, unknown), kRegistryFailure);
    EXPECT_EQ(ResolveMappedPath(L"\\CONFIG", failing, unknown), kRegistryOk);
}

// Paths at their limits pass (one more: the Wine tests); a value name follows the last separator.
TEST(RegistryPathMap, KeyAndValuePathsAreBounded) {
    std::wstring path(255, L'k');
    EXPECT_EQ(NormalizeKeyPath(path), kRegistryOk);
    path = L"SOFTWARE\\Norvane\\";
    EXPECT_EQ(NormalizeKeyPath(path), kRegistryOk);
    EXPECT_EQ(path, L"SOFTWARE\\Norvane");

    std::wstring key, value;
    EXPECT_EQ(SplitValuePath(L"\\CONFIG\\Random\\Seed", key, value), kRegistryOk);
    EXPECT_EQ(key + L"|" + value, L"\\CONFIG\\Random|Seed");
    EXPECT_EQ(SplitValuePath(L"\\CONFIG\\", key, value), kRegistryOk);
    EXPECT_EQ(key + L"|" + value, L"\\CONFIG|");
    EXPECT_EQ(SplitValuePath(std::wstring(260, L'\\'), key, value), kRegistryOk);
    EXPECT_EQ(SplitValuePath(L"NoSeparator", key, value), kRegistryBadArgument);
}

} // namespace
} // namespace setuputils
