// The registry library against Wine's registry (abbreviated paths, protected
// per-user keys, statuses, enumeration, tree deletion and move), the link and
// relocation actions, and the access rights for app containers and low
// integrity.
#include <gtest/gtest.h>

#include <aclapi.h>
#include <sddl.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/handles.h"
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
// Full access, inherited by subkeys, for creator owner, local system and the user.
const std::wstring kOwnerSystemUser = L"(A;CI;KA;;;CO)(A;CI;KA;;;SY)(A;CI;KA;;;" + kUserSid + L")";

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

std::wstring SidText(PSID sid) {
    LocalMemory text;
    ConvertSidToStringSidW(sid, reinterpret_cast<LPWSTR*>(text.put()));
    return text ? static_cast<const wchar_t*>(text.get()) : L"<bad sid>";
}

std::vector<ACE_HEADER*> Aces(PACL acl) {
    ACL_SIZE_INFORMATION size{};
    std::vector<ACE_HEADER*> aces;
    if (acl != nullptr && GetAclInformation(acl, &size, sizeof(size), AclSizeInformation)) {
        for (DWORD index = 0; index < size.AceCount; ++index) {
            void* ace = nullptr;
            GetAce(acl, index, &ace);
            aces.push_back(static_cast<ACE_HEADER*>(ace));
        }
    }
    return aces;
}

// The SIDs of an access list's entries, in order (allow and label entries hold theirs alike).
std::vector<std::wstring> Sids(PACL acl) {
    std::vector<std::wstring> sids;
    for (ACE_HEADER* ace : Aces(acl)) {
        sids.push_back(SidText(&reinterpret_cast<ACCESS_ALLOWED_ACE*>(ace)->SidStart));
    }
    return sids;
}

// The access list of an HKLM key as SDDL.
std::wstring DaclText(const std::wstring& path) {
    LocalMemory descriptor;
    LocalMemory text;
    GetSecurityInfo(OpenKey(path, READ_CONTROL).get(), SE_REGISTRY_KEY, DACL_SECURITY_INFORMATION, nullptr,
                    nullptr, nullptr, nullptr, reinterpret_cast<void**>(descriptor.put()));
    if (!descriptor ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(
            descriptor.get(), 1, DACL_SECURITY_INFORMATION, reinterpret_cast<LPWSTR*>(text.put()), nullptr)) {
        return L"<unreadable>";
    }
    return static_cast<const wchar_t*>(text.get());
}

LSTATUS SetKeyDacl(HKEY key, const wchar_t* sddl) {
    LocalMemory sd;
    ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, 1, reinterpret_cast<void**>(sd.put()),
                                                         nullptr);
    return RegSetKeySecurity(key, DACL_SECURITY_INFORMATION, sd.get());
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

// The key itself at an HKLM path: its "SymbolicLinkValue" and how many values it holds.
struct LinkValue {
    DWORD type = REG_NONE;
    std::wstring target;
    DWORD bytes = 0;
    DWORD values = 0;
};

LinkValue ReadLink(const std::wstring& path) {
    LinkValue link;
    RegKey key = OpenKey(path, KEY_QUERY_VALUE, REG_OPTION_OPEN_LINK);
    wchar_t buffer[300] = L"";
    DWORD size = sizeof(buffer);
    RegQueryInfoKeyW(key.get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &link.values, nullptr,
                     nullptr, nullptr, nullptr);
    if (key && RegQueryValueExW(key.get(), kSymbolicLinkValue, nullptr, &link.type,
                                reinterpret_cast<BYTE*>(buffer), &size) == ERROR_SUCCESS) {
        link.bytes = size;
        link.target.assign(buffer, size / sizeof(wchar_t));
    }
    return link;
}

void MakeLink(const std::wstring& path, const std::wstring& target) {
    RegKey link;
    ASSERT_EQ(OpenOrCreateLinkKey(path, link), 0);
    ASSERT_EQ(WriteLinkTarget(link.get(), target), 0);
}

// Removes an HKLM key: a link as a link (deleting it by name would delete its
// target), anything else with its subtree.
void RemoveKeyOrLink(const std::wstring& path) {
    if (IsLinkKey(OpenKey(path, KEY_QUERY_VALUE, REG_OPTION_OPEN_LINK).get())) {
        DeleteRegistryLink(path, true);
    } else {
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, path);
    }
}

// An installer session on an empty package, for the exported actions.
class ActionTest : public ::testing::Test {
protected:
    ActionTest() {
        package_.AddStandardTables();
        package_.Commit();
        session_ = std::make_unique<TestSession>(package_);
    }
    UINT Run(const char* action) { return library_.Action(action)(session_->get()); }

    SetupUtilsLibrary library_;
    TestPackage package_;
    std::unique_ptr<TestSession> session_;
};

class RegistryLibraryTest : public ::testing::Test {
protected:
    ~RegistryLibraryTest() override {
        for (const auto& link : links_) {
            DeleteRegistryLink(link, true);
        }
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kProviderNode);
        DeleteRegistryTree(HKEY_CLASSES_ROOT, L"WOW6432Node\\CLSID\\" + classId_);
    }

    std::vector<std::wstring> links_;
    const std::wstring classId_ = NewGuid();
    const std::wstring classKey_ = L"WOW6432Node\\CLSID\\" + classId_ + L"\\InprocServer32";
    const std::wstring classValue_ = L"\\LICENSE\\InprocServer32\\" + classId_ + L"\\InprocServer32";
};

TEST_F(RegistryLibraryTest, PerUserPathsShareTheUsersProtectedRoot) {
    std::wstring user;
    ASSERT_EQ(CurrentUserSidText(user), kRegistryOk);
    EXPECT_EQ(user, kUserSid);
    ASSERT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kUserRoot));

    EXPECT_EQ(SetMappedStringValue(L"\\LOCAL\\Random\\Seed", L"x"), kRegistryOk);
    RegistryValue value;
    ASSERT_EQ(GetMappedValue(L"\\Random\\Seed", value), kRegistryOk);
    EXPECT_EQ(value.type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(value.data.size(), 2 * sizeof(wchar_t)) << "the terminator is part of the value";
    EXPECT_EQ(Text(value), L"x");
    EXPECT_EQ(Read(kUserRoot + L"\\Random", L"Seed"), L"x");

    // The missing root got the protected list; its first entries depend on the version (see below).
    const std::wstring root = DaclText(kUserRoot);
    ASSERT_GE(root.size(), kOwnerSystemUser.size());
    EXPECT_EQ(root.substr(root.size() - kOwnerSystemUser.size()), kOwnerSystemUser) << root;
}

TEST_F(RegistryLibraryTest, StatusesAreTheLibrarysOwn) {
    MappedKey key;
    RegistryValue value;
    EXPECT_EQ(OpenMappedKey(L"\\GLOBAL\\Absent", kRegReadValues, key), kRegistryNotFound);
    EXPECT_EQ(GetMappedValue(L"\\GLOBAL\\Absent\\Value", value), kRegistryNotFound);
    Write(kSettings + L"\\Present", L"Other", L"1");
    EXPECT_EQ(GetMappedValue(L"\\GLOBAL\\Present\\Value", value), kRegistryNotFound);

    // "\GLOBAL" stands for kSettings: the real path may hold 255 characters, not 256.
    const std::wstring longest = L"\\GLOBAL\\" + std::wstring(kMostKeyPathChars - kSettings.size() - 1, L'k');
    EXPECT_EQ(OpenMappedKey(longest, kRegReadValues, key), kRegistryNotFound);
    EXPECT_EQ(OpenMappedKey(longest + L"k", kRegReadValues, key), kRegistryBadArgument);
    EXPECT_EQ(OpenMappedKey(longest + L"k", kRegWriteValues, key), kRegistryBadArgument);
    EXPECT_EQ(SubkeyCount(kSettings), 1u) << "nothing created";

    // Key and value name together may hold 260 characters.
    const std::wstring valuePath = L"\\GLOBAL\\Present\\";
    const std::wstring name(kMostValuePathChars - valuePath.size(), L'v');
    EXPECT_EQ(GetMappedValue(valuePath + name, value), kRegistryNotFound);
    EXPECT_EQ(GetMappedValue(valuePath + name + L"v", value), kRegistryBadArgument);
    EXPECT_EQ(SetMappedStringValue(valuePath + name + L"v", L"x"), kRegistryBadArgument);

    EXPECT_EQ(OpenMappedKey(L"\\LICENSE\\InprocServer32\\{short", kRegReadValues, key), kRegistryFailure);

    // Wine enforces registry access lists: a key only local system may read is denied to the user.
    Write(kSettings + L"\\Locked", L"Secret", L"1");
    RegKey locked = OpenKey(kSettings + L"\\Locked", READ_CONTROL | WRITE_DAC);
    ASSERT_EQ(SetKeyDacl(locked.get(), L"D:P(A;;KR;;;SY)"), 0);
    EXPECT_EQ(GetMappedValue(L"\\GLOBAL\\Locked\\Secret", value), kRegistryAccessDenied);
    MappedKeyEnumeration walk;
    EXPECT_EQ(walk.Open(L"\\GLOBAL\\Locked", true), kRegistryAccessDenied);
    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\Locked"), kRegistryAccessDenied);
    ASSERT_EQ(SetKeyDacl(locked.get(), L"D:(A;;KA;;;BA)(A;;KA;;;SY)"), 0);
}

TEST_F(RegistryLibraryTest, EnumerationGivesValuesWithDataOrSubkeyNamesThenEnds) {
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\Name", L"text"), kRegistryOk);
    const std::uint8_t bytes[] = {7, 8};
    ASSERT_EQ(SetMappedBinaryValue(L"\\GLOBAL\\Walk\\Blob", bytes), kRegistryOk);
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\One\\Inner", L"1"), kRegistryOk);
    ASSERT_EQ(SetMappedStringValue(L"\\GLOBAL\\Walk\\Two\\Inner", L"2"), kRegistryOk);

    RegistryStatus end = kRegistryOk;
    auto values = Walk(L"\\GLOBAL\\Walk", false, end);
    EXPECT_EQ(end, kRegistryNotFound);
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[L"Name"].type, static_cast<DWORD>(REG_SZ));
    EXPECT_EQ(Text(values[L"Name"]), L"text");
    EXPECT_EQ(values[L"Blob"].type, static_cast<DWORD>(REG_BINARY));
    EXPECT_EQ(values[L"Blob"].data, (std::vector<std::uint8_t>{7, 8}));

    auto subkeys = Walk(L"\\GLOBAL\\Walk", true, end);
    EXPECT_EQ(end, kRegistryNotFound);
    ASSERT_EQ(subkeys.size(), 2u);
    EXPECT_TRUE(subkeys.count(L"One") == 1 && subkeys.count(L"Two") == 1);
    EXPECT_TRUE(subkeys[L"One"].data.empty());

    Walk(L"\\GLOBAL\\Absent", true, end);
    EXPECT_EQ(end, kRegistryNotFound);
    MappedKeyEnumeration unopened;
    RegistryValue entry;
    EXPECT_EQ(unopened.Next(entry), kRegistryBadArgument);
}

// The registry matches value names case-insensitively; "InprocServer32" alone
// is looked for by its exact spelling.
TEST_F(RegistryLibraryTest, InprocServerValueIsFoundByItsExactName) {
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, L"InprocServer32", L"exact.dll");
    RegistryValue found;
    ASSERT_EQ(GetMappedValue(classValue_, found), kRegistryOk);
    EXPECT_EQ(Text(found), L"exact.dll");
    EXPECT_EQ(found.name, L"InprocServer32");

    DeleteRegistryTree(HKEY_CLASSES_ROOT, classKey_);
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, L"inprocserver32", L"lower.dll");
    EXPECT_EQ(GetMappedValue(classValue_, found), kRegistryNotFound);
    ASSERT_EQ(GetMappedValue(L"\\LICENSE\\InprocServer32\\" + classId_ + L"\\INPROCSERVER32", found), 0u);
    EXPECT_EQ(Text(found), L"lower.dll");
}

// A value name longer than the 260-character capacity of a record is read
// whole: a walk goes on past it, and the InprocServer32 search still finds
// its value behind it.
TEST_F(RegistryLibraryTest, LongValueNamesNeitherStallAWalkNorHideInprocServer) {
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, std::wstring(300, L'A'), L"long");
    WriteRegistryString(HKEY_CLASSES_ROOT, classKey_, L"InprocServer32", L"exact.dll");
    RegistryValue found;
    EXPECT_EQ(GetMappedValue(classValue_, found), kRegistryOk);
    EXPECT_EQ(Text(found), L"exact.dll");
    RegistryStatus end = kRegistryOk;
    Walk(L"\\LICENSE\\InprocServer32\\" + classId_, false, end);
    EXPECT_NE(end, kRegistryOk) << "the walk never ends";
}

TEST_F(RegistryLibraryTest, DeletingATreeRemovesALinkInItButNotItsTarget) {
    const std::wstring tree = kSettings + L"\\Doomed";
    Write(tree, L"Top", L"1");
    Write(tree + L"\\Sub\\Deeper", L"Deep", L"1");
    Write(kProviderNode + L"\\Target", L"Kept", L"yes");
    Write(kProviderNode + L"\\Target\\Child", L"Kept", L"too");
    links_.push_back(tree + L"\\Link");
    MakeLink(tree + L"\\Link", L"\\Registry\\Machine\\" + kProviderNode + L"\\Target");
    ASSERT_EQ(Read(tree + L"\\Link", L"Kept"), L"yes");

    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\Doomed"), kRegistryOk);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, tree));
    EXPECT_EQ(Read(kProviderNode + L"\\Target", L"Kept"), L"yes");
    EXPECT_EQ(Read(kProviderNode + L"\\Target\\Child", L"Kept"), L"too");
    EXPECT_EQ(DeleteMappedTree(L"\\GLOBAL\\Doomed"), kRegistryNotFound);
}

TEST_F(RegistryLibraryTest, MovingATreeMovesSubkeysAndCopiesValues) {
    const std::wstring from = kProviderNode + L"\\From";
    const std::wstring to = kProviderNode + L"\\To";
    Write(from, L"Own", L"stays");
    Write(from + L"\\A", L"a", L"x");
    Write(from + L"\\A\\Deep", L"d", L"deep");
    Write(from + L"\\B", L"b", L"y");
    Write(to + L"\\A", L"Old", L"kept");

    RegKey target = OpenKey(to, KEY_ALL_ACCESS);
    // Without the right to query it the source is not touched.
    EXPECT_EQ(MoveKeyTree(target.get(), OpenKey(from, KEY_ENUMERATE_SUB_KEYS).get()), ERROR_ACCESS_DENIED);
    EXPECT_EQ(SubkeyCount(from), 2u);

    EXPECT_EQ(MoveKeyTree(target.get(), OpenKey(from, KEY_ALL_ACCESS).get()), ERROR_SUCCESS);
    EXPECT_EQ(Read(to, L"Own"), L"stays");
    EXPECT_EQ(Read(to + L"\\A", L"a"), L"x");
    EXPECT_EQ(Read(to + L"\\A", L"Old"), L"kept");
    EXPECT_EQ(Read(to + L"\\A\\Deep", L"d"), L"deep");
    EXPECT_EQ(Read(to + L"\\B", L"b"), L"y");
    EXPECT_EQ(Read(from, L"Own"), L"stays");
    EXPECT_EQ(SubkeyCount(from), 0u);
}

// Wine 8.0's ntdll has no RtlDeriveCapabilitySidsFromName, so the
// "registryRead" entry of NT 6.3+ is left out there.
TEST(RegistrySettingsAcl, EntriesFollowTheSystemVersion) {
    ASSERT_TRUE(GetProcAddress(GetModuleHandleW(L"ntdll"), "RtlDeriveCapabilitySidsFromName") == nullptr);
    const std::vector<std::wstring> win7 = {L"S-1-3-0", L"S-1-5-18", kUserSid};
    const std::vector<std::wstring> win8 = {L"S-1-15-2-1", L"S-1-3-0", L"S-1-5-18", kUserSid};
    const std::pair<NtVersion, std::vector<std::wstring>> cases[] = {
        {{6, 1}, win7}, {{6, 2}, win8}, {{6, 3}, win8}, {{10, 0}, win8}};
    for (const auto& [version, expected] : cases) {
        LocalMemory acl = BuildSettingsKeyAcl(version);
        ASSERT_TRUE(acl);
        EXPECT_EQ(Sids(static_cast<PACL>(acl.get())), expected)
            << "NT " << version.major << "." << version.minor;
        for (ACE_HEADER* ace : Aces(static_cast<PACL>(acl.get()))) {
            EXPECT_EQ(ace->AceType, ACCESS_ALLOWED_ACE_TYPE);
            EXPECT_EQ(ace->AceFlags, CONTAINER_INHERIT_ACE);
            EXPECT_EQ(reinterpret_cast<ACCESS_ALLOWED_ACE*>(ace)->Mask, static_cast<DWORD>(KEY_ALL_ACCESS));
        }
    }
}

// A protected key gets the list of the running version, whether it is new
// (the user's root and a key below it) or was there already. Wine 8.0 ignores
// the descriptor given to RegCreateKeyExW and drops SE_DACL_PROTECTED from
// SetSecurityInfo on keys (RegSetKeySecurity keeps it), so where Windows shows
// "D:P" Wine shows "D:"; the entries, which the library chooses, are exact.
class RegistryAccessListTest : public RegistryLibraryTest {
protected:
    void ExpectProtectedKeys(DWORD major, DWORD minor, const std::wstring& entries) {
        ASSERT_EQ(GetNtVersion().major, major) << "the test prefix reports the wrong Windows version";
        ASSERT_EQ(GetNtVersion().minor, minor);
        MappedKey key;
        ASSERT_EQ(OpenMappedKey(L"\\LOCAL\\New", kRegCreateUserRoot, key), kRegistryOk);
        EXPECT_EQ(key.flags, kRegCreateUserRoot);
        Write(kSettings + L"\\Shared", L"Plain", L"1");
        ASSERT_EQ(OpenMappedKey(L"\\GLOBAL\\Shared", kRegCreateUserRoot, key), kRegistryOk);
        for (const std::wstring& path : {kUserRoot, kUserRoot + L"\\New", kSettings + L"\\Shared"}) {
            EXPECT_EQ(DaclText(path), L"D:" + entries) << path;
        }
    }
};
class RegistryAccessListOnWindows7 : public RegistryAccessListTest {};
class RegistryAccessListOnWindows10 : public RegistryAccessListTest {};

TEST_F(RegistryAccessListOnWindows7, HasNoAppPackagesEntry) {
    ExpectProtectedKeys(6, 1, kOwnerSystemUser);
}

// On Windows the "registryRead" capability would follow AC; Wine cannot derive it.
TEST_F(RegistryAccessListOnWindows10, LetsAllAppPackagesInFirst) {
    ExpectProtectedKeys(10, 0, L"(A;CI;KA;;;AC)" + kOwnerSystemUser);
}

const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
const std::wstring kControlService = L"SYSTEM\\CurrentControlSet\\Services\\NvnCtrl";
const std::wstring kParameters = kControlService + L"\\Parameters\\";
const std::wstring kLinkTargets =
    L"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\NvnCtrl\\Parameters\\";
const std::wstring kLists[] = {L"NvnIntegrity", L"NvnPatches", L"NvnExclude"};

class NvnRelocateTest : public ActionTest {
protected:
    ~NvnRelocateTest() override {
        for (const auto& list : kLists) {
            RemoveKeyOrLink(kSessionManager + list);
        }
        RemoveKeyOrLink(kControlService);
    }
    void FillLists() {
        for (const auto& list : kLists) {
            Write(kSessionManager + list, L"Name", list);
            Write(kSessionManager + list + L"\\Entry", L"Path", L"C:\\" + list);
        }
    }
    void ExpectListsBelow(const std::wstring& base) {
        for (const auto& list : kLists) {
            EXPECT_EQ(Read(base + list, L"Name"), list) << base;
            EXPECT_EQ(Read(base + list + L"\\Entry", L"Path"), L"C:\\" + list) << base;
        }
    }
    void ExpectRelocated() {
        ExpectListsBelow(kParameters);
        ExpectListsBelow(kSessionManager);
        for (const auto& list : kLists) {
            const LinkValue link = ReadLink(kSessionManager + list);
            EXPECT_EQ(link.type, static_cast<DWORD>(REG_LINK)) << list;
            EXPECT_EQ(link.target, kLinkTargets + list);
            EXPECT_EQ(link.bytes, (kLinkTargets + list).size() * sizeof(wchar_t)) << "no terminator";
            EXPECT_EQ(link.values, 1u) << "the old key's values stayed behind";
            EXPECT_EQ(ReadLink(kParameters + list).type, static_cast<DWORD>(REG_NONE))
                << "a link value moved";
            // A link, not a copy: what is written at the new place shows at the old one.
            Write(kParameters + list, L"Fresh", L"yes");
            EXPECT_EQ(Read(kSessionManager + list, L"Fresh"), L"yes");
        }
    }
};

TEST_F(NvnRelocateTest, MovesTheListsAndLeavesLinksEvenWhenRunTwice) {
    FillLists();
    EXPECT_EQ(Run("NvnRelocate"), 0u);
    ExpectRelocated();
    EXPECT_EQ(Run("NvnRelocate"), 0u);
    ExpectRelocated();
}

TEST_F(NvnRelocateTest, RevertBringsTheListsBackAndRemovesTheParameters) {
    FillLists();
    ASSERT_EQ(Run("NvnRelocate"), 0u);
    EXPECT_EQ(Run("NvnRevert"), 0u);
    ExpectListsBelow(kSessionManager);
    for (const auto& list : kLists) {
        EXPECT_EQ(ReadLink(kSessionManager + list).type, static_cast<DWORD>(REG_NONE))
            << list << " is a link";
        EXPECT_FALSE(Read(kSessionManager + list, L"Fresh").has_value());
    }
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kParameters));
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

const std::wstring kNativeSub = L"Software\\Norvane\\Sub";
const std::wstring kThirtyTwoBitSub = L"Software\\WOW6432Node\\Norvane\\Sub";
const std::wstring kSubTarget = L"\\Registry\\Machine\\Software\\WOW6432Node\\Norvane\\Sub";

class NvnLinkTest : public ActionTest {
protected:
    NvnLinkTest() { session_->SetProperty(L"CustomActionData", L"Sub"); }
    ~NvnLinkTest() override {
        DeleteRegistryLink(kNativeSub, true);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"Software\\Norvane");
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"Software\\WOW6432Node\\Norvane");
    }
    void ExpectLinked() {
        const LinkValue link = ReadLink(kNativeSub);
        EXPECT_EQ(link.type, static_cast<DWORD>(REG_LINK));
        EXPECT_EQ(link.target, kSubTarget);
        EXPECT_EQ(link.bytes, kSubTarget.size() * sizeof(wchar_t));
        EXPECT_EQ(Read(kNativeSub, L"Shared"), L"32");
    }
    MessageRecorder messages_;
};

TEST_F(NvnLinkTest, NativeKeyLeadsToTheThirtyTwoBitNodeAndUnlinkKeepsIt) {
    Write(kNativeSub, L"Stale", L"native");
    Write(kThirtyTwoBitSub, L"Shared", L"32");

    EXPECT_EQ(Run("NvnLink"), 0u);
    ExpectLinked();
    EXPECT_FALSE(Read(kNativeSub, L"Stale").has_value());
    Write(kThirtyTwoBitSub, L"Later", L"seen");
    EXPECT_EQ(Read(kNativeSub, L"Later"), L"seen");
    EXPECT_EQ(messages_.InfoTexts(), std::vector<std::wstring>{L"SymbolicLink created"});

    messages_.Clear();
    EXPECT_EQ(Run("NvnUnlink"), 0u);
    ExpectLinked();
    EXPECT_EQ(Read(kThirtyTwoBitSub, L"Later"), L"seen");
    EXPECT_EQ(SubkeyCount(L"Software\\Norvane"), 1u);
    EXPECT_TRUE(messages_.all().empty());
}

// Run again (a repair, a reinstall), NvnLink keeps the link it made before:
// deleting it by name would delete its target, the shared settings under the
// 32-bit node.
TEST_F(NvnLinkTest, LinkingAgainKeepsTheSharedSettings) {
    Write(kThirtyTwoBitSub, L"Shared", L"32");
    EXPECT_EQ(Run("NvnLink"), 0u);
    EXPECT_EQ(Run("NvnLink"), 0u);
    ExpectLinked();
    EXPECT_EQ(Read(kThirtyTwoBitSub, L"Shared"), L"32");
}

class AccessRightsTest : public ActionTest {
protected:
    ~AccessRightsTest() override { DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane"); }

    const std::wstring folder_ = MakeTempFolder(L"acl");
};

// Wine refuses mandatory labels (SetNamedSecurityInfoW with
// LABEL_SECURITY_INFORMATION answers 5) and the action ignores the system's
// answer by design, so the label cannot be seen on the tree: its descriptor is
// checked, and the action is seen to succeed and to leave the tree alone.
TEST_F(AccessRightsTest, LowIntegrityLabelIsOneInheritedNoWriteUpEntry) {
    LocalMemory descriptor = LowIntegrityLabelDescriptor();
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    PACL sacl = nullptr;
    ASSERT_TRUE(descriptor && GetSecurityDescriptorSacl(descriptor.get(), &present, &sacl, &defaulted));
    ASSERT_TRUE(present);
    std::vector<ACE_HEADER*> aces = Aces(sacl);
    ASSERT_EQ(aces.size(), 1u);
    EXPECT_EQ(aces[0]->AceType, SYSTEM_MANDATORY_LABEL_ACE_TYPE);
    EXPECT_EQ(aces[0]->AceFlags, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE);
    EXPECT_EQ(reinterpret_cast<SYSTEM_MANDATORY_LABEL_ACE*>(aces[0])->Mask, 1u) << "no write-up";
    EXPECT_EQ(Sids(sacl), std::vector<std::wstring>{L"S-1-16-4096"});

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
    const std::wstring file = folder_ + L"provider.dll";
    WriteTextFile(file, "x");
    PACL current = nullptr;
    LocalMemory descriptor;
    ASSERT_EQ(GetNamedSecurityInfoW(file.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                    &current, nullptr, reinterpret_cast<void**>(descriptor.put())),
              0u);
    LocalMemory merged;
    ASSERT_EQ(MergeAppPackagesEntry(current, merged), 0u);

    const PACL list = static_cast<PACL>(merged.get());
    std::vector<std::wstring> sids = Sids(list);
    const auto packages = std::find(sids.begin(), sids.end(), L"S-1-15-2-1");
    ASSERT_NE(packages, sids.end());
    ACE_HEADER* ace = Aces(list)[packages - sids.begin()];
    EXPECT_EQ(ace->AceType, ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_EQ(ace->AceFlags, OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE);
    EXPECT_EQ(reinterpret_cast<ACCESS_ALLOWED_ACE*>(ace)->Mask, 0x1200A9u);
    // One entry more; the file's own entries are all kept.
    std::vector<std::wstring> expected = Sids(current);
    ASSERT_FALSE(expected.empty());
    expected.push_back(L"S-1-15-2-1");
    std::sort(expected.begin(), expected.end());
    std::sort(sids.begin(), sids.end());
    EXPECT_EQ(sids, expected);
}

// On NT 6.1 the action does not even read the file's list, which cannot be
// told apart from a write Wine ignores; the gate is checked instead.
TEST_F(AccessRightsTest, AppPackagesActionIsGatedOnWindows8AndFailsOnlyOnUnreadableData) {
    EXPECT_FALSE(HasAppContainers(NtVersion{6, 1}));
    EXPECT_TRUE(HasAppContainers(NtVersion{6, 2}));
    EXPECT_TRUE(HasAppContainers(NtVersion{6, 3}));
    EXPECT_TRUE(HasAppContainers(NtVersion{10, 0}));

    // An unset property reads as empty, which names no file.
    EXPECT_EQ(Run("AllAppPackageSecurity"), 0u);
    session_->SetProperty(L"CustomActionData", folder_ + L"absent.dll");
    EXPECT_EQ(Run("AllAppPackageSecurity"), 0u);
    EXPECT_EQ(library_.Action("AllAppPackageSecurity")(0), static_cast<UINT>(ERROR_INSTALL_FAILURE));
}

// Wine's SetNamedSecurityInfoW returns 0 for files and changes nothing, so the
// merged entry cannot be seen on the file; MergeAppPackagesEntry is checked above.
class AccessRightsOnWindows10 : public AccessRightsTest {};

TEST_F(AccessRightsOnWindows10, AppPackagesActionSucceedsOnFilesAndFolders) {
    ASSERT_EQ(ReportedMajorVersion(), 10u);
    WriteTextFile(folder_ + L"provider.dll", "x");
    for (const std::wstring& path : {folder_ + L"provider.dll", folder_, folder_ + L"absent.dll"}) {
        session_->SetProperty(L"CustomActionData", path);
        EXPECT_EQ(Run("AllAppPackageSecurity"), 0u) << path;
    }
}

} // namespace
} // namespace harness
