// The provider's abbreviated registry locations, resolved without a registry.
#include "registry/access_flags.h"
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
        {L"\\APPPATH3", L"0 " + kConfig + L"\\AppPath3"},
        {L"\\Cryptography64\\Defaults", L"0 HKLM\\SOFTWARE\\Microsoft\\Cryptography\\Defaults flags 256"},
        {L"\\CRYPTOGRAPHY6", L"0 HKLM\\SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography6"},
        // Everything else is below the user's settings, "\LOCAL" dropped.
        {L"\\LOCAL\\Random\\Seed", L"0 HKLM\\" + kUserRoot + L"\\Random\\Seed user \\Random\\Seed"},
        {L"\\local\\Random", L"0 HKLM\\" + kUserRoot + L"\\Random user \\Random"},
        {L"\\Random", L"0 HKLM\\" + kUserRoot + L"\\Random user \\Random"},
        {L"Random", L"0 HKLM\\" + kUserRoot + L"\\Random user Random"},
        {L"\\LOCAL", L"0 HKLM\\" + kUserRoot + L" user "},
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

TEST(RegistryPathMap, KeyAndValuePathsAreBounded) {
    std::wstring path(255, L'k');
    EXPECT_EQ(NormalizeKeyPath(path), kRegistryOk);
    path.push_back(L'k');
    EXPECT_EQ(NormalizeKeyPath(path), kRegistryBadArgument);
    path = L"SOFTWARE\\Norvane\\";
    EXPECT_EQ(NormalizeKeyPath(path), kRegistryOk);
    EXPECT_EQ(path, L"SOFTWARE\\Norvane");

    std::wstring key, value;
    EXPECT_EQ(SplitValuePath(L"\\CONFIG\\Random\\Seed", key, value), kRegistryOk);
    EXPECT_EQ(key + L"|" + value, L"\\CONFIG\\Random|Seed");
    EXPECT_EQ(SplitValuePath(L"\\CONFIG\\", key, value), kRegistryOk);
    EXPECT_EQ(key + L"|" + value, L"\\CONFIG|");
    EXPECT_EQ(SplitValuePath(std::wstring(260, L'\\'), key, value), kRegistryOk);
    EXPECT_EQ(SplitValuePath(std::wstring(261, L'\\'), key, value), kRegistryBadArgument);
    EXPECT_EQ(SplitValuePath(L"NoSeparator", key, value), kRegistryBadArgument);
}

TEST(RegistryStatusMap, RegistryResultsSpeakTheProvidersVocabulary) {
    const std::pair<long, unsigned> cases[] = {{0, 0},   {234, 0},         {2, 2},
                                               {259, 2}, {5, 0x80090010u}, {8, 0x8009000Eu},
                                               {87, 87}, {3, 0x8009001Du}, {1018, 0x8009001Du}};
    for (const auto& [status, mapped] : cases) {
        EXPECT_EQ(MapRegistryStatus(status), mapped) << status;
    }
}

// Owner, access list and enumeration are the rights a new per-user root needs.
TEST(RegistryAccessFlags, TranslateToRegistryRights) {
    const std::pair<RegistryFlags, unsigned> cases[] = {{kRegReadValues, 0x1u},
                                                        {kRegEnumerateSubkeys, 0x8u},
                                                        {kRegWriteValues, 0x2u},
                                                        {kRegDeleteTree, 0x10008u},
                                                        {kRegCreateUserRoot, 0xC0008u},
                                                        {kRegCreate, 0x2u},
                                                        {kRegCreate | kReg64BitView, 0x100u},
                                                        {0x10 | 0x80 | 0x4 | 0x1000000, 0x1020014u}};
    for (const auto& [flags, rights] : cases) {
        EXPECT_EQ(TranslateRegistryFlags(flags), rights) << flags;
    }
}

} // namespace
} // namespace setuputils
