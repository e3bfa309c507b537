// The provider's abbreviated registry locations, resolved without a registry.
#include <gtest/gtest.h>

#include <string>

#include "registry/access_flags.h"
#include "registry/path_map.h"
#include "registry/registry_status.h"

namespace setuputils {
namespace {

constexpr wchar_t kUser[] = L"S-1-5-21-1-2-3-1000";
const std::wstring kUserRoot = std::wstring(kUserSettingsRoot) + kUser;
const std::wstring kClassId = L"{0A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9}";

RegistryStatus KnownUser(std::wstring& name) {
    name = kUser;
    return kRegistryOk;
}

MappedKeyPath Resolve(const std::wstring& input, RegistryStatus expected = kRegistryOk) {
    MappedKeyPath resolved;
    EXPECT_EQ(ResolveMappedPath(input, KnownUser, resolved), expected)
        << std::string(input.begin(), input.end());
    return resolved;
}

TEST(RegistryPathMap, EachAbbreviationReachesItsKey) {
    struct Row {
        std::wstring input;
        RegistryRootKey root;
        std::wstring path;
        RegistryFlags extra;
    };
    const RegistryRootKey hklm = RegistryRootKey::LocalMachine;
    const Row rows[] = {
        {L"\\LICENSE\\InprocServer32\\" + kClassId, RegistryRootKey::ClassesRoot,
         L"WOW6432Node\\CLSID\\" + kClassId + L"\\InprocServer32", 0},
        {L"\\GLOBAL\\Readers", hklm, L"SOFTWARE\\WOW6432Node\\Norvane\\Settings\\Readers", 0},
        {L"\\POLICIES\\X", hklm, L"SOFTWARE\\Policies\\X", 0},
        {L"\\SYSCONTROL\\Lsa", hklm, L"SYSTEM\\CurrentControlSet\\Control\\Lsa", 0},
        {L"\\APPPATH32\\a.dll", hklm,
         L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion\\AppPath\\a.dll", 0},
        {L"\\CONFIG64\\Random", hklm, L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\Random", 0},
        {L"\\CONFIG\\Random", hklm, L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion\\Random",
         0},
        {L"\\APPPATH\\a.dll", hklm, L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\AppPath\\a.dll", 0},
        {L"\\CRYPTOGRAPHY64\\Defaults", hklm, L"SOFTWARE\\Microsoft\\Cryptography\\Defaults", kReg64BitView},
        {L"\\CRYPTOGRAPHY\\Defaults", hklm, L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography\\Defaults", 0},
        {L"\\LOCAL\\Random", hklm, kUserRoot + L"\\Random", 0},
    };
    for (const Row& row : rows) {
        MappedKeyPath resolved = Resolve(row.input);
        EXPECT_EQ(resolved.root, row.root) << std::string(row.input.begin(), row.input.end());
        EXPECT_EQ(resolved.path, row.path);
        EXPECT_EQ(resolved.extraFlags, row.extra);
    }
}

TEST(RegistryPathMap, MatchesPrefixesCaseInsensitivelyInOrder) {
    EXPECT_EQ(Resolve(L"\\config\\Random").path, Resolve(L"\\CONFIG\\Random").path);
    EXPECT_EQ(Resolve(L"\\Cryptography64").extraFlags, kReg64BitView);
    // Only the abbreviation's own length is compared: the rest is appended as it stands.
    EXPECT_EQ(Resolve(L"\\CONFIGURE").path,
              L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersionURE");
    EXPECT_EQ(Resolve(L"\\CONFIG64").path, L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion");
    EXPECT_EQ(Resolve(L"\\APPPATH32").path,
              L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion\\AppPath");
    EXPECT_EQ(Resolve(L"\\APPPATH3").path, L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\AppPath3");
    EXPECT_EQ(Resolve(L"\\CRYPTOGRAPHY6").extraFlags, 0u);
}

TEST(RegistryPathMap, ClassIdFormNeedsASeparatorAndAWholeClassId) {
    const std::wstring form = L"\\LICENSE\\InprocServer32";
    EXPECT_EQ(Resolve(form + L"\\" + kClassId + L"\\Sub").path,
              L"WOW6432Node\\CLSID\\" + kClassId + L"\\InprocServer32\\Sub");
    // Whatever the separator is, the 38 characters after it are the class id.
    EXPECT_EQ(Resolve(form + L"/" + kClassId).path, L"WOW6432Node\\CLSID\\" + kClassId + L"\\InprocServer32");
    Resolve(form + L"\\" + kClassId.substr(0, 37), kRegistryFailure);
    Resolve(form, kRegistryFailure);
    EXPECT_EQ(Resolve(L"\\license\\inprocserver32\\" + kClassId).root, RegistryRootKey::ClassesRoot);
}

TEST(RegistryPathMap, EverythingElseIsBelowTheUsersSettings) {
    EXPECT_EQ(Resolve(L"\\LOCAL\\Random").path, Resolve(L"\\Random").path);
    EXPECT_EQ(Resolve(L"\\local\\Random").path, kUserRoot + L"\\Random");
    EXPECT_EQ(Resolve(L"Random").path, kUserRoot + L"\\Random");
    EXPECT_EQ(Resolve(L"\\LOCAL").path, kUserRoot);
    EXPECT_EQ(Resolve(L"").path, kUserRoot);
    MappedKeyPath resolved = Resolve(L"\\LOCAL\\Random\\Seed");
    EXPECT_TRUE(resolved.perUser);
    EXPECT_EQ(resolved.userRoot, kUserRoot);
    EXPECT_EQ(resolved.remainder, L"\\Random\\Seed");

    // Who the user is matters only here, and its failure is the resolution's.
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
    std::wstring trailing = L"SOFTWARE\\Norvane\\";
    EXPECT_EQ(NormalizeKeyPath(trailing), kRegistryOk);
    EXPECT_EQ(trailing, L"SOFTWARE\\Norvane");

    std::wstring key;
    std::wstring value;
    EXPECT_EQ(SplitValuePath(L"\\CONFIG\\Random\\Seed", key, value), kRegistryOk);
    EXPECT_EQ(key, L"\\CONFIG\\Random");
    EXPECT_EQ(value, L"Seed");
    EXPECT_EQ(SplitValuePath(L"\\CONFIG\\", key, value), kRegistryOk);
    EXPECT_EQ(value, L"");
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

TEST(RegistryAccessFlags, TranslateToRegistryRights) {
    EXPECT_EQ(TranslateRegistryFlags(kRegReadValues), 0x1u);
    EXPECT_EQ(TranslateRegistryFlags(kRegEnumerateSubkeys), 0x8u);
    EXPECT_EQ(TranslateRegistryFlags(kRegWriteValues), 0x2u);
    EXPECT_EQ(TranslateRegistryFlags(kRegDeleteTree), 0x10008u);
    // Owner, access list and enumeration: the rights a new per-user root needs.
    EXPECT_EQ(TranslateRegistryFlags(kRegCreateUserRoot), 0xC0008u);
    EXPECT_EQ(TranslateRegistryFlags(kRegCreate), 0x2u);
    EXPECT_EQ(TranslateRegistryFlags(kRegCreate | kReg64BitView), 0x100u);
    EXPECT_EQ(TranslateRegistryFlags(0x10 | 0x80 | 0x4 | 0x1000000), 0x1020014u);
}

} // namespace
} // namespace setuputils
