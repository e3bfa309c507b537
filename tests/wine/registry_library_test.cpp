// The registry library against Wine's registry, and access rights.
#include <gtest/gtest.h>

#include <windows.h>

#include <sddl.h>

#include <set>
#include <tuple>

#include "action_session.h"
#include "machine.h"
#include "profiles/access_rights.h"
#include "registry/registry_library.h"
#include "registry/registry_links.h"
#include "security_text.h"

namespace harness {
namespace {

using namespace setuputils;
using namespace std::string_literals;
using Entries = std::set<std::wstring>;

const HKEY kHklm = HKEY_LOCAL_MACHINE;
const std::wstring kUserSid = L"S-1-5-21-0-0-0-1000"; // every program in the prefix runs as this user
const std::wstring kProviderNode = L"SOFTWARE\\WOW6432Node\\Norvane";
const std::wstring kSettings = kProviderNode + L"\\Settings"; // "\GLOBAL"
const std::wstring kUserRoot = kSettings + L"\\Users\\" + kUserSid;
// Full inherited access for creator owner, system and the user; from NT 6.2 all app packages first.
const std::wstring kOwnerSystemUser = L"D:(A;CI;KA;;;CO)(A;CI;KA;;;SY)(A;CI;KA;;;" + kUserSid + L")";
const std::wstring kNativeSub = L"Software\\Norvane\\Sub";
const std::wstring kPackagesFirst = L"D:(A;CI;KA;;;AC)" + kOwnerSystemUser.substr(2);

// "name:type:UTF-16 data" of each entry walked, and "end <the status that stopped the walk>".
Entries Walk(const std::wstring& path) {
    MappedKeyEnumeration walk;
    Entries found;
    RegistryValue entry;
    RegistryStatus end = walk.Open(path, false);
    for (int step = 0; end == 0 && step < 8; ++step) {
        if ((end = walk.Next(entry)) == 0) {
            const std::wstring data(reinterpret_cast<const wchar_t*>(entry.data.data()),
                                    entry.data.size() / 2);
            found.insert(entry.name + L":" + std::to_wstring(entry.type) + L":" + data);
        }
    }
    found.insert(L"end " + std::to_wstring(end));
    return found;
}

void MakeLink(const std::wstring& path, const std::wstring& target) {
    RegKey link;
    ASSERT_EQ(OpenOrCreateLinkKey(path, link), 0);
    ASSERT_EQ(WriteLinkTarget(link.get(), target), 0);
}

// What a test leaves goes afterwards, a link as a link: deleting one by name would delete its target.
class RegistryTest : public ::testing::Test {
protected:
    ~RegistryTest() override {
        for (const std::wstring& path : {kNativeSub, L"Software\\Norvane"s, kProviderNode}) {
            DeleteRegistryLink(path, false);
            DeleteRegistryTree(kHklm, path);
        }
    }

    ActionSession session_;
};

// Per-user paths share the user's root; a walk gives the values, however long, then 2;
// statuses are the provider's numbers; a tree is deleted as keys (a link goes, its target stays).
TEST_F(RegistryTest, LibraryWritesReadsWalksAndDeletes) {
    ASSERT_EQ(SetMappedStringValue(L"\\LOCAL\\Random\\Seed", L"x"), 0u);
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\Name", L"text"), 0u);
    ASSERT_EQ(SetMappedBinaryValue(L"\\GLOBAL\\Walk\\Blob", std::vector<std::uint8_t>{7, 8}), 0u);
    const std::wstring longName(300, L'A');
    WriteRegistryString(kHklm, kSettings + L"\\Walk", longName, L"long");
    EXPECT_EQ(ReadRegistryString(kHklm, kUserRoot + L"\\Random", L"Seed"), L"x");
    EXPECT_EQ(Walk(L"\\GLOBAL\\Walk"),
              (Entries{L"Blob:3:\x0807", L"Name:1:text\0"s, longName + L":1:long\0"s, L"end 2"}));

    // The real path may hold 255 characters, key and value name together 260.
    WriteRegistryString(kHklm, kSettings + L"\\Locked", L"Secret", L"1");
    ASSERT_EQ(SetKeySecurity(kSettings + L"\\Locked", L"D:(A;;KR;;;SY)(A;;WD;;;BA)"), 0);
    MappedKey key;
    RegistryValue value;
    const RegistryStatus statuses[] = {
        GetMappedValue(L"\\GLOBAL\\Absent\\Value", value),
        GetMappedValue(L"\\GLOBAL\\Walk\\Value", value),
        OpenMappedKey(L"\\GLOBAL\\" + std::wstring(255 - kSettings.size(), L'k'), kRegReadValues, key),
        GetMappedValue(L"\\GLOBAL\\Walk\\" + std::wstring(260 - 12, L'v'), value),
        OpenMappedKey(L"\\LICENSE\\InprocServer32\\{short", kRegReadValues, key),
        GetMappedValue(L"\\GLOBAL\\Locked\\Secret", value),
        DeleteMappedTree(L"\\GLOBAL\\Locked")};
    EXPECT_EQ(std::vector(std::begin(statuses), std::end(statuses)),
              (std::vector<RegistryStatus>{2, 2, 87, 87, 0x8009001D, 0x80090010, 0x80090010}));
    ASSERT_EQ(SetKeySecurity(kSettings + L"\\Locked", L"D:(A;;KA;;;BA)"), 0);

    WriteRegistryString(kHklm, kProviderNode + L"\\Target", L"Kept", L"1");
    WriteRegistryString(kHklm, kSettings + L"\\To\\B", L"b", L"1");
    MakeLink(kSettings + L"\\To\\B\\Link", L"\\Registry\\Machine\\" + kProviderNode + L"\\Target");
    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\To"), 0u);
    EXPECT_FALSE(RegistryKeyExists(kHklm, kSettings + L"\\To"));
    EXPECT_EQ(ReadRegistryString(kHklm, kProviderNode + L"\\Target", L"Kept"), L"1");
}

// Wine 8.0 has no RtlDeriveCapabilitySidsFromName: the "registryRead" entry (NT 6.3+) is left out.
TEST(RegistrySettingsAcl, EntriesFollowTheSystemVersion) {
    for (const auto& [version, packages] :
         {std::pair{NtVersion{6, 1}, false}, {{6, 2}, true}, {{6, 3}, true}, {{10, 0}, true}}) {
        EXPECT_EQ(AclText(static_cast<PACL>(BuildSettingsKeyAcl(version).get())),
                  packages ? kPackagesFirst : kOwnerSystemUser)
            << version.major << "." << version.minor;
        EXPECT_EQ(HasAppContainers(version), packages); // also the gate of AllAppPackageSecurity
    }
}

// Protected keys, new or not, get the running version's list (Wine 8.0 ignores the descriptor
// given to RegCreateKeyExW: the list seen is the one set afterwards).
using RegistryAccessListOnWindows10 = RegistryTest;
TEST_F(RegistryAccessListOnWindows10, LetsAllAppPackagesInFirst) {
    MappedKey key;
    ASSERT_EQ(OpenMappedKey(L"\\LOCAL\\New", kRegCreateUserRoot, key), 0u);
    WriteRegistryString(kHklm, kSettings + L"\\Shared", L"Plain", L"1");
    ASSERT_EQ(OpenMappedKey(L"\\GLOBAL\\Shared", kRegCreateUserRoot, key), 0u);
    for (const std::wstring& path : {kUserRoot, kUserRoot + L"\\New", kSettings + L"\\Shared"}) {
        EXPECT_EQ(KeyDaclText(kHklm, path), kPackagesFirst) << path;
    }
}

// Run again (a reinstall over the link left behind), NvnLink keeps the link it made: deleting it by
// name would delete the shared settings. NvnUnlink leaves it too. The first run: the script test.
TEST_F(RegistryTest, NvnLinkRunAgainAndNvnUnlinkKeepTheLink) {
    WriteRegistryString(kHklm, kProviderNode + L"\\Sub", L"Shared", L"32");
    for (const char* action : {"NvnLink", "NvnLink", "NvnUnlink"}) {
        EXPECT_EQ(session_.Run(action, L"Sub"), 0u) << action;
        EXPECT_EQ(ReadRegistryString(kHklm, kNativeSub, L"Shared"), L"32") << action;
    }
}

// No name links nothing (not the provider's top key itself); a native key with subkeys of its own stays the
// key it is.
TEST_F(RegistryTest, NvnLinkLeavesAnEmptyNameAndAKeyWithSubkeysAlone) {
    WriteRegistryString(kHklm, L"Software\\Norvane", L"Top", L"64");
    EXPECT_EQ(session_.Run("NvnLink", L""), 0u);
    WriteRegistryString(kHklm, kNativeSub + L"\\Child", L"Own", L"64");
    EXPECT_EQ(session_.Run("NvnLink", L"Sub"), 0u);
    EXPECT_EQ(ReadRegistryString(kHklm, L"Software\\Norvane", L"Top"), L"64");
    EXPECT_EQ(ReadRegistryString(kHklm, kNativeSub + L"\\Child", L"Own"), L"64");
    EXPECT_TRUE(session_.messages().InfoTexts().empty());
}

// Wine refuses labels and SetNamedSecurityInfoW on files: SetRegistryLow's label (inherited, no
// write-up, low) and AllAppPackageSecurity's merge (one entry first, the rest kept; a NULL list left alone)
// are checked.
TEST_F(RegistryTest, AccessRightsLowIntegrityLabelAndAppPackagesEntry) {
    LocalMemory descriptor = LowIntegrityLabelDescriptor();
    BOOL present = FALSE, defaulted = FALSE;
    PACL sacl = nullptr;
    SYSTEM_MANDATORY_LABEL_ACE* label = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorSacl(descriptor.get(), &present, &sacl, &defaulted) && present &&
                sacl->AceCount == 1 && GetAce(sacl, 0, reinterpret_cast<void**>(&label)));
    EXPECT_EQ(
        std::tuple(label->Header.AceType, label->Header.AceFlags, label->Mask,
                   *GetSidSubAuthority(&label->SidStart, 0)),
        std::tuple(SYSTEM_MANDATORY_LABEL_ACE_TYPE, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE, 1u, 0x1000u));
    EXPECT_EQ(session_.Run("SetRegistryLow"), 0u);

    LocalMemory lists, merged;
    PACL current = nullptr;
    ASSERT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;FA;;;SY)(A;OICI;FR;;;BU)",
                                                                     SDDL_REVISION_1, lists.put(), nullptr) &&
                GetSecurityDescriptorDacl(lists.get(), &present, &current, &defaulted));
    ASSERT_EQ(MergeAppPackagesEntry(current, merged), 0u);
    EXPECT_EQ(AclText(static_cast<PACL>(merged.get())),
              L"D:(A;OICI;0x1200a9;;;AC)(A;;FA;;;SY)(A;OICI;FR;;;BU)");
    EXPECT_EQ(MergeAppPackagesEntry(nullptr, merged), 0u); // a NULL list lets everyone in: no list made
    EXPECT_FALSE(merged);
}

} // namespace
} // namespace harness
