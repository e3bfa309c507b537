// The registry library against Wine's registry (abbreviated paths, protected
// per-user keys, statuses, enumeration, tree deletion and move), the link and
// relocation actions, and the access rights for app containers and low integrity.
#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/handles.h"
#include "action_session.h"
#include "frame/windows_version.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "profiles/access_rights.h"
#include "registry/registry_library.h"
#include "registry/registry_links.h"
#include "test_package.h"

namespace harness {
namespace {

using namespace setuputils;

// The user every program in the test prefix runs as.
const std::wstring kUserSid = L"S-1-5-21-0-0-0-1000";
const std::wstring kProviderNode = L"SOFTWARE\\WOW6432Node\\Norvane";
const std::wstring kSettings = kProviderNode + L"\\Settings";
const std::wstring kUserRoot = kSettings + L"\\Users\\" + kUserSid;
// The protected list: full access, inherited by subkeys, for creator owner,
// local system and the user; from NT 6.2 on all application packages come first.
const std::wstring kOwnerSystemUser = L"D:(A;CI;KA;;;CO)(A;CI;KA;;;SY)(A;CI;KA;;;" + kUserSid + L")";
const std::wstring kPackagesFirst = L"D:(A;CI;KA;;;AC)" + kOwnerSystemUser.substr(2);

std::optional<std::wstring> Read(const std::wstring& path, const std::wstring& name) {
    return ReadRegistryString(HKEY_LOCAL_MACHINE, path, name);
}
void Write(const std::wstring& path, const std::wstring& name, const std::wstring& value) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, path, name, value);
}

RegKey OpenKey(const std::wstring& path, REGSAM access, DWORD options = 0) {
    RegKey key;
    RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), options, access, key.put());
    return key;
}

DWORD SubkeyCount(const std::wstring& path) {
    DWORD subkeys = 0;
    RegQueryInfoKeyW(OpenKey(path, KEY_READ).get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr,
                     nullptr, nullptr, nullptr, nullptr, nullptr);
    return subkeys;
}

// An access list, or that of an HKLM key, as SDDL (without the descriptor's
// flags: Wine 8.0 drops SE_DACL_PROTECTED from SetSecurityInfo on keys).
std::wstring AclText(PACL acl) {
    SECURITY_DESCRIPTOR descriptor{};
    LocalMemory text;
    if (acl == nullptr || !InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE) ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(
            &descriptor, 1, DACL_SECURITY_INFORMATION, reinterpret_cast<LPWSTR*>(text.put()), nullptr)) {
        return L"<unreadable>";
    }
    return static_cast<const wchar_t*>(text.get());
}
std::wstring DaclText(const std::wstring& path) {
    LocalMemory descriptor;
    PACL acl = nullptr;
    GetSecurityInfo(OpenKey(path, READ_CONTROL).get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr,
                    nullptr, &acl, nullptr, reinterpret_cast<void**>(descriptor.put()));
    return AclText(acl);
}

std::wstring Text(const RegistryValue& value) {
    std::wstring text(reinterpret_cast<const wchar_t*>(value.data.data()),
                      value.data.size() / sizeof(wchar_t));
    return text.substr(0, text.find(L'\0'));
}

// The entries of a walk by name; `end` gets the status that stopped it, 0
// when it had not stopped after a few more steps than any key here needs.
std::map<std::wstring, RegistryValue> Walk(const std::wstring& path, bool subkeys, RegistryStatus& end) {
    MappedKeyEnumeration walk;
    std::map<std::wstring, RegistryValue> found;
    RegistryValue entry;
    end = walk.Open(path, subkeys);
    for (int step = 0; end == kRegistryOk && step < 8; ++step) {
        if ((end = walk.Next(entry)) == kRegistryOk) {
            found[entry.name] = entry;
        }
    }
    return found;
}

// The target of the link key at an HKLM path exactly as stored (a terminator
// would show); empty when the key is no link.
std::wstring LinkTarget(const std::wstring& path) {
    wchar_t target[300] = L"";
    DWORD size = sizeof(target), type = REG_NONE;
    if (RegQueryValueExW(OpenKey(path, KEY_QUERY_VALUE, REG_OPTION_OPEN_LINK).get(), kSymbolicLinkValue,
                         nullptr, &type, reinterpret_cast<BYTE*>(target), &size) != ERROR_SUCCESS ||
        type != REG_LINK) {
        return L"";
    }
    return std::wstring(target, size / sizeof(wchar_t));
}

void MakeLink(const std::wstring& path, const std::wstring& target) {
    RegKey link;
    ASSERT_EQ(OpenOrCreateLinkKey(path, link), 0);
    ASSERT_EQ(WriteLinkTarget(link.get(), target), 0);
}

class RegistryLibraryTest : public ::testing::Test {
protected:
    ~RegistryLibraryTest() override {
        DeleteRegistryLink(kSettings + L"\\To\\B\\Link", true);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kProviderNode);
        DeleteRegistryTree(HKEY_CLASSES_ROOT, L"WOW6432Node\\CLSID\\" + classId_);
    }

    const std::wstring classId_ = NewGuid();
    const std::wstring classKey_ = L"WOW6432Node\\CLSID\\" + classId_ + L"\\InprocServer32";
    const std::wstring classPath_ = L"\\LICENSE\\InprocServer32\\" + classId_;
};

TEST_F(RegistryLibraryTest, PerUserPathsShareTheUsersProtectedRoot) {
    ASSERT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kUserRoot));
    EXPECT_EQ(SetMappedStringValue(L"\\LOCAL\\Random\\Seed", L"x"), kRegistryOk);
    RegistryValue value;
    ASSERT_EQ(GetMappedValue(L"\\Random\\Seed", value), kRegistryOk);
    EXPECT_EQ(value.data.size(), 2 * sizeof(wchar_t)) << "the terminator is part of the value";
    EXPECT_EQ(Read(kUserRoot + L"\\Random", L"Seed"), L"x"); // its access list: see below
}

TEST_F(RegistryLibraryTest, StatusesAreTheLibrarysOwn) {
    MappedKey key;
    RegistryValue value;
    EXPECT_EQ(GetMappedValue(L"\\GLOBAL\\Absent\\Value", value), kRegistryNotFound);
    Write(kSettings + L"\\Present", L"Other", L"1");
    EXPECT_EQ(GetMappedValue(L"\\GLOBAL\\Present\\Value", value), kRegistryNotFound);

    // "\GLOBAL" stands for kSettings: the real path may hold 255 characters, not 256.
    const std::wstring longest = L"\\GLOBAL\\" + std::wstring(kMostKeyPathChars - kSettings.size() - 1, L'k');
    EXPECT_EQ(OpenMappedKey(longest, kRegReadValues, key), kRegistryNotFound);
    EXPECT_EQ(OpenMappedKey(longest + L"k", kRegReadValues, key), kRegistryBadArgument);
    // Key and value name together may hold 260 characters.
    const std::wstring present = L"\\GLOBAL\\Present\\";
    const std::wstring name = present + std::wstring(kMostValuePathChars - present.size(), L'v');
    EXPECT_EQ(GetMappedValue(name, value), kRegistryNotFound);
    EXPECT_EQ(GetMappedValue(name + L"v", value), kRegistryBadArgument);

    EXPECT_EQ(OpenMappedKey(L"\\LICENSE\\InprocServer32\\{short", kRegReadValues, key), kRegistryFailure);

    // Wine enforces registry access lists: a key only local system may read is denied to the user
    // (administrators may change its list, for the cleanup).
    Write(kSettings + L"\\Locked", L"Secret", L"1");
    ASSERT_EQ(SetKeyDacl(kSettings + L"\\Locked", L"D:(A;;KR;;;SY)(A;;WD;;;BA)"), 0);
    EXPECT_EQ(GetMappedValue(L"\\GLOBAL\\Locked\\Secret", value), kRegistryAccessDenied);
    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\Locked"), kRegistryAccessDenied);
    ASSERT_EQ(SetKeyDacl(kSettings + L"\\Locked", L"D:(A;;KA;;;BA)"), 0);
}

TEST_F(RegistryLibraryTest, EnumerationGivesValuesWithDataOrSubkeyNamesThenEnds) {
    const std::uint8_t bytes[] = {7, 8};
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\Name", L"text"), kRegistryOk);
    ASSERT_EQ(SetMappedBinaryValue(L"\\GLOBAL\\Walk\\Blob", bytes), kRegistryOk);
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\One\\Inner", L"1"), kRegistryOk);
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\Two\\Inner", L"2"), kRegistryOk);
    // Longer than the 260 characters a record holds, yet read whole.
    const std::wstring longName(300, L'A');
    Write(kSettings + L"\\Walk", longName, L"long");

    RegistryStatus end = kRegistryOk;
    auto values = Walk(L"\\GLOBAL\\Walk", false, end);
    EXPECT_EQ(end, kRegistryNotFound);
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(Text(values[longName]), L"long");
    EXPECT_EQ(values[L"Name"].type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(Text(values[L"Name"]), L"text");
    EXPECT_EQ(values[L"Blob"].type, static_cast<DWORD>(REG_BINARY));
    EXPECT_EQ(values[L"Blob"].data, (std::vector<std::uint8_t>{7, 8}));

    auto subkeys = Walk(L"\\GLOBAL\\Walk", true, end);
    EXPECT_EQ(end, kRegistryNotFound);
    ASSERT_EQ(subkeys.size(), 2u);
    EXPECT_TRUE(subkeys.count(L"One") == 1 && subkeys[L"One"].data.empty());

    Walk(L"\\GLOBAL\\Absent", true, end);
    EXPECT_EQ(end, kRegistryNotFound);
    RegistryValue entry;
    EXPECT_EQ(MappedKeyEnumeration().Next(entry), kRegistryBadArgument);
}

// The registry matches value names case-insensitively; "InprocServer32" alone
// is looked for by its exact spelling, also behind a long name.
TEST_F(RegistryLibraryTest, InprocServerValueIsFoundByItsExactName) {
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, std::wstring(300, L'A'), L"long");
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, L"InprocServer32", L"exact.dll");
    RegistryValue found;
    ASSERT_EQ(GetMappedValue(classPath_ + L"\\InprocServer32", found), kRegistryOk);
    EXPECT_EQ(Text(found), L"exact.dll");

    DeleteRegistryTree(HKEY_CLASSES_ROOT, classKey_);
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, L"inprocserver32", L"lower.dll");
    EXPECT_EQ(GetMappedValue(classPath_ + L"\\InprocServer32", found), kRegistryNotFound);
    ASSERT_EQ(GetMappedValue(classPath_ + L"\\INPROCSERVER32", found), kRegistryOk);
    EXPECT_EQ(Text(found), L"lower.dll");
}

// The source keeps its own values and loses its subkeys; the moved tree, with
// a link in it, is then deleted without following the link.
TEST_F(RegistryLibraryTest, TreesMoveTheirSubkeysAndDeleteWithoutFollowingLinks) {
    const std::wstring from = kProviderNode + L"\\From";
    const std::wstring to = kSettings + L"\\To";
    Write(from, L"Own", L"stays");
    Write(from + L"\\A\\Deep", L"d", L"deep");
    Write(from + L"\\B", L"b", L"y");
    Write(to + L"\\A", L"Old", L"kept");

    RegKey target = OpenKey(to, KEY_ALL_ACCESS);
    // Without the right to query it the source is not touched.
    EXPECT_EQ(MoveKeyTree(target.get(), OpenKey(from, KEY_ENUMERATE_SUB_KEYS).get()), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SubkeyCount(from), 2u);
    EXPECT_EQ(MoveKeyTree(target.get(), OpenKey(from, KEY_ALL_ACCESS).get()), ERROR_SUCCESS);
    target.reset();
    EXPECT_EQ(Read(from, L"Own"), L"stays");
    EXPECT_EQ(SubkeyCount(from), 0u);
    EXPECT_EQ(Read(to, L"Own"), L"stays");
    EXPECT_EQ(Read(to + L"\\A", L"Old"), L"kept");
    EXPECT_EQ(Read(to + L"\\A\\Deep", L"d"), L"deep");
    EXPECT_EQ(Read(to + L"\\B", L"b"), L"y");

    Write(from + L"\\Child", L"Kept", L"too");
    MakeLink(to + L"\\B\\Link", L"\\Registry\\Machine\\" + from);
    ASSERT_EQ(Read(to + L"\\B\\Link", L"Own"), L"stays");
    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\To"), kRegistryOk);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, to));
    EXPECT_EQ(Read(from + L"\\Child", L"Kept"), L"too");
    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\To"), kRegistryNotFound);
}

// Wine 8.0's ntdll has no RtlDeriveCapabilitySidsFromName, so the
// "registryRead" entry of NT 6.3+ is left out there.
TEST(RegistrySettingsAcl, EntriesFollowTheSystemVersion) {
    ASSERT_TRUE(GetProcAddress(GetModuleHandleW(L"ntdll"), "RtlDeriveCapabilitySidsFromName") == nullptr);
    const std::pair<NtVersion, bool> cases[] = {
        {{6, 1}, false}, {{6, 2}, true}, {{6, 3}, true}, {{10, 0}, true}};
    for (const auto& [version, packages] : cases) {
        EXPECT_EQ(AclText(static_cast<PACL>(BuildSettingsKeyAcl(version).get())),
                  packages ? kPackagesFirst : kOwnerSystemUser)
            << version.major << "." << version.minor;
        // The gate of AllAppPackageSecurity too, which Wine cannot show on a file.
        EXPECT_EQ(HasAppContainers(version), packages);
    }
}

// A protected key gets the list of the running version, whether it is new
// (the user's root and a key below it) or was there already. Wine 8.0 ignores
// the descriptor given to RegCreateKeyExW: the list seen is the one set afterwards.
void ExpectProtectedKeys(DWORD major, const std::wstring& expected) {
    ASSERT_EQ(GetNtVersion().major, major) << "the test prefix reports the wrong Windows version";
    MappedKey key;
    ASSERT_EQ(OpenMappedKey(L"\\LOCAL\\New", kRegCreateUserRoot, key), kRegistryOk);
    EXPECT_EQ(key.flags, kRegCreateUserRoot);
    Write(kSettings + L"\\Shared", L"Plain", L"1");
    ASSERT_EQ(OpenMappedKey(L"\\GLOBAL\\Shared", kRegCreateUserRoot, key), kRegistryOk);
    for (const std::wstring& path : {kUserRoot, kUserRoot + L"\\New", kSettings + L"\\Shared"}) {
        EXPECT_EQ(DaclText(path), expected) << path;
    }
}
using RegistryAccessListOnWindows7 = RegistryLibraryTest;
using RegistryAccessListOnWindows10 = RegistryLibraryTest;

TEST_F(RegistryAccessListOnWindows7, HasNoAppPackagesEntry) {
    ExpectProtectedKeys(6, kOwnerSystemUser);
}
// On Windows the "registryRead" capability would follow AC; Wine cannot derive it.
TEST_F(RegistryAccessListOnWindows10, LetsAllAppPackagesInFirst) {
    ExpectProtectedKeys(10, kPackagesFirst);
}

const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
const std::wstring kControlService = L"SYSTEM\\CurrentControlSet\\Services\\NvnCtrl";
const std::wstring kParameters = kControlService + L"\\Parameters\\";
const std::wstring kLinkTargets =
    L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\";
const std::wstring kLists[] = {L"NvnIntegrity", L"NvnPatches", L"NvnExclude"};
const std::wstring kNativeSub = L"Software\\Norvane\\Sub";
const std::wstring kThirtyTwoBitSub = L"Software\\WOW6432Node\\Norvane\\Sub";

// An installer session on an empty package, for the exported actions. What
// they leave goes afterwards, a link as a link: deleting one by name would
// delete its target.
class ActionTest : public ::testing::Test {
protected:
    ~ActionTest() override {
        for (const std::wstring& path :
             {kSessionManager + kLists[0], kSessionManager + kLists[1], kSessionManager + kLists[2],
              kControlService, kNativeSub, std::wstring(L"Software\\Norvane"),
              std::wstring(L"Software\\WOW6432Node\\Norvane")}) {
            DeleteRegistryLink(path, false);
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, path);
        }
    }
    UINT Run(std::string_view action) { return session_.Run(action.data()); }

    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
    const std::wstring folder_ = MakeTempFolder(L"acl");
};
using NvnRelocateTest = ActionTest;
using NvnLinkTest = ActionTest;
using AccessRightsTest = ActionTest;
using AccessRightsOnWindows10 = ActionTest;

// Relocated, the lists live below the parameters key and links stand at
// their old places; relocating again changes nothing, reverting restores them.
TEST_F(NvnRelocateTest, MovesTheListsLeavingLinksEvenTwiceAndRevertBringsThemBack) {
    for (const auto& list : kLists) {
        Write(kSessionManager + list, L"Name", list);
        Write(kSessionManager + list + L"\\Entry", L"Path", L"C:\\" + list);
    }
    for (const std::string_view action : {"NvnRelocate", "NvnRelocate", "NvnRevert"}) {
        EXPECT_EQ(Run(action), 0u);
        const bool relocated = action == "NvnRelocate";
        const std::wstring& home = relocated ? kParameters : kSessionManager;
        for (const auto& list : kLists) {
            EXPECT_EQ(Read(home + list, L"Name"), list) << action;
            EXPECT_EQ(Read(home + list + L"\\Entry", L"Path"), L"C:\\" + list) << action;
            EXPECT_EQ(LinkTarget(kSessionManager + list), relocated ? kLinkTargets + list : L"") << action;
            EXPECT_EQ(LinkTarget(kParameters + list), L"") << action << ": a link value moved";
            // A link, not a copy: what is written at the new place shows at the old one.
            if (relocated) {
                Write(kParameters + list, L"Fresh", list);
            }
            EXPECT_EQ(Read(kSessionManager + list, L"Fresh"), list) << action;
        }
        EXPECT_EQ(RegistryKeyExists(HKEY_LOCAL_MACHINE, kParameters), relocated) << action;
    }
}

TEST_F(NvnRelocateTest, RevertWithoutParametersOnlyDeletesTheLinks) {
    MakeLink(kSessionManager + kLists[0], kLinkTargets + kLists[0]);
    MakeLink(kSessionManager + kLists[1], kLinkTargets + kLists[1]);
    Write(kSessionManager + kLists[2], L"Name", L"real");
    Write(kControlService, L"Start", L"kept");

    EXPECT_EQ(Run("NvnRevert"), 0u);
    EXPECT_FALSE(OpenKey(kSessionManager + kLists[0], KEY_READ, REG_OPTION_OPEN_LINK));
    EXPECT_FALSE(OpenKey(kSessionManager + kLists[1], KEY_READ, REG_OPTION_OPEN_LINK));
    EXPECT_EQ(Read(kSessionManager + kLists[2], L"Name"), L"real");
    EXPECT_EQ(Read(kControlService, L"Start"), L"kept");
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kParameters));
}

// Run again (a repair, a reinstall), NvnLink keeps the link it made: deleting
// it by name would delete the shared settings. NvnUnlink leaves it too.
TEST_F(NvnLinkTest, NativeKeyLeadsToTheThirtyTwoBitNodeAndStaysSo) {
    session_.session().SetProperty(L"CustomActionData", L"Sub");
    Write(kNativeSub, L"Stale", L"native");
    Write(kThirtyTwoBitSub, L"Shared", L"32");
    for (const auto& [action, said] : {std::pair{"NvnLink", 1}, {"NvnLink", 1}, {"NvnUnlink", 0}}) {
        messages_.Clear();
        EXPECT_EQ(Run(action), 0u);
        EXPECT_EQ(LinkTarget(kNativeSub), L"\\Registry\\Machine\\" + kThirtyTwoBitSub) << action;
        EXPECT_EQ(Read(kNativeSub, L"Shared"), L"32") << action;
        EXPECT_EQ(messages_.InfoTexts(), std::vector<std::wstring>(said, L"SymbolicLink created")) << action;
    }
}

// Wine refuses mandatory labels (SetNamedSecurityInfoW answers 5) and the
// action ignores the answer by design: the label's descriptor is checked, and
// the action is seen to succeed and to leave the tree alone.
TEST_F(AccessRightsTest, LowIntegrityLabelIsOneInheritedNoWriteUpEntry) {
    LocalMemory descriptor = LowIntegrityLabelDescriptor();
    BOOL present = FALSE, defaulted = FALSE;
    PACL sacl = nullptr;
    void* ace = nullptr;
    ASSERT_TRUE(descriptor && GetSecurityDescriptorSacl(descriptor.get(), &present, &sacl, &defaulted));
    ASSERT_TRUE(present && sacl->AceCount == 1 && GetAce(sacl, 0, &ace));
    const auto* label = static_cast<SYSTEM_MANDATORY_LABEL_ACE*>(ace);
    EXPECT_EQ(label->Header.AceType, SYSTEM_MANDATORY_LABEL_ACE_TYPE);
    EXPECT_EQ(label->Header.AceFlags, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE);
    EXPECT_EQ(label->Mask, static_cast<DWORD>(SYSTEM_MANDATORY_LABEL_NO_WRITE_UP));
    LocalMemory sid;
    ConvertSidToStringSidW(const_cast<DWORD*>(&label->SidStart), reinterpret_cast<LPWSTR*>(sid.put()));
    EXPECT_STREQ(static_cast<const wchar_t*>(sid.get()), L"S-1-16-4096");

    const std::wstring users = L"SOFTWARE\\Norvane\\Settings\\Users";
    EXPECT_EQ(Run("SetRegistryLow"), 0u);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, users));
    Write(users, L"Keep", L"1");
    const std::wstring before = DaclText(users);
    EXPECT_EQ(Run("SetRegistryLow"), 0u);
    EXPECT_EQ(DaclText(users), before);
    EXPECT_EQ(Read(users, L"Keep"), L"1");
}

TEST_F(AccessRightsTest, AppPackagesEntryJoinsAFilesAccessList) {
    WriteTextFile(folder_ + L"provider.dll", "x");
    PACL current = nullptr;
    LocalMemory descriptor, merged;
    ASSERT_EQ(GetNamedSecurityInfoW((folder_ + L"provider.dll").c_str(), SE_FILE_OBJECT,
                                    DACL_SECURITY_INFORMATION, nullptr, nullptr, &current, nullptr,
                                    reinterpret_cast<void**>(descriptor.put())),
              0u);
    ASSERT_EQ(MergeAppPackagesEntry(current, merged), 0u);
    // One entry more; the file's own entries are all kept.
    std::wstring text = AclText(static_cast<PACL>(merged.get()));
    const std::wstring entry = L"(A;OICI;0x1200a9;;;AC)";
    ASSERT_NE(text.find(entry), std::wstring::npos) << text;
    EXPECT_EQ(text.erase(text.find(entry), entry.size()), AclText(current));
}

// Wine's SetNamedSecurityInfoW returns 0 for files and changes nothing, so the
// merged entry cannot be seen on a file; MergeAppPackagesEntry is checked above.
TEST_F(AccessRightsOnWindows10, AppPackagesActionFailsOnlyWithoutASession) {
    ASSERT_EQ(ReportedMajorVersion(), 10u);
    WriteTextFile(folder_ + L"provider.dll", "x");
    // An empty property names no file.
    for (const std::wstring& path :
         {std::wstring(), folder_ + L"provider.dll", folder_, folder_ + L"absent.dll"}) {
        session_.session().SetProperty(L"CustomActionData", path);
        EXPECT_EQ(Run("AllAppPackageSecurity"), 0u) << path;
    }
    EXPECT_EQ(session_.library().Action("AllAppPackageSecurity")(0),
              static_cast<UINT>(ERROR_INSTALL_FAILURE));
}

} // namespace
} // namespace harness
