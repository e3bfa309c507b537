// The provider's and the seeding's actions against Wine, with the test provider
// DLL, stand-in installer windows (on Xvfb) and the message boxes asked for.
#include <gtest/gtest.h>

#include <windows.h>
#include <wincrypt.h>
#include <aclapi.h>
#include <sddl.h>

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "action_session.h"
#include "frame/product_codes.h"
#include "frame/windows_version.h"
#include "import_redirect.h"
#include "machine.h"
#include "message_boxes.h"
#include "rng/random_seed.h"
#include "snapshot.h"
#include "test_provider.h"

namespace harness {
namespace {

const std::wstring kTypes = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\";
const std::wstring kUserCrypto = L"Software\\Microsoft\\Cryptography";
const std::wstring kTypes32 = L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography\\Defaults";
const Watched kWatched{{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography\\Defaults"},
                        {HKEY_LOCAL_MACHINE, L"SOFTWARE\\WOW6432Node"},
                        {HKEY_CURRENT_USER, kUserCrypto}},
                       {},
                       {}};
constexpr DWORD kUser = CERT_SYSTEM_STORE_CURRENT_USER, kMachine = CERT_SYSTEM_STORE_LOCAL_MACHINE;
const std::wstring kStores = L"Software\\Microsoft\\SystemCertificates\\";
const std::wstring kParent =
    L"SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 0\\CryptDllFindLocalizedName";
const std::wstring kTrustedStore = kStores + L"NorvaneTrustedStore";
constexpr char kGost256[] = "1.2.643.7.1.1.3.2", kGost512[] = "1.2.643.7.1.1.3.3";
const std::wstring kUserSid = L"S-1-5-21-0-0-0-1000", kDefaultHive = L".Default";
const std::wstring kRunOnce = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
const std::wstring kPatchSettings = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnPatches";
const std::wstring kProviderNode = L"SOFTWARE\\WOW6432Node\\Norvane", kVendorKey = L"SOFTWARE\\Norvane";
const std::wstring kTypeDefault = kTypes + L"Type 080";
const RegistryData kSeed = MakeRegistryData(REG_BINARY, "0123456789abcdef", 16);
const TestProviderBehaviour kWorks{}, kFails{.acquireResult = static_cast<DWORD>(NTE_KEYSET_ENTRY_BAD)};
const std::wstring kAcquire = L"CPAcquireContext 0 0xF0000000;";
const std::wstring kAskedForTheGenerator = kAcquire + L"CPSetProvParam 38 0x0;CPReleaseContext 0 0x0;";
constexpr UINT kWarningStyle = MB_ICONEXCLAMATION | MB_SETFOREGROUND | MB_TOPMOST;

// The library's calls that change certificates, as "<serial> <what>": Wine keeps
// no property changed in a system store.
using CallSet = std::multiset<std::wstring>;
CallSet g_calls;

std::wstring Serial(PCCERT_CONTEXT certificate) {
    return std::to_wstring(certificate->pCertInfo->SerialNumber.pbData[0]);
}

BOOL WINAPI RecordSetProperty(PCCERT_CONTEXT certificate, DWORD property, DWORD flags, const void* data) {
    std::wstring call =
        Serial(certificate) + (data == nullptr ? L" drop " : L" set ") + std::to_wstring(property);
    if (const auto* link = static_cast<const CRYPT_KEY_PROV_INFO*>(data);
        link && property == CERT_KEY_PROV_INFO_PROP_ID) {
        call += L" type " + std::to_wstring(link->dwProvType) + L" name '" +
                (link->pwszProvName != nullptr ? link->pwszProvName : L"") + L"'";
    }
    g_calls.insert(call);
    return CertSetCertificateContextProperty(certificate, property, flags, data);
}

BOOL WINAPI RecordAdd(HCERTSTORE store, PCCERT_CONTEXT certificate, DWORD disposition,
                      PCCERT_CONTEXT* added) {
    g_calls.insert(Serial(certificate) + L" add " + std::to_wstring(disposition));
    return CertAddCertificateContextToStore(store, certificate, disposition, added);
}

// Stores a certificate signed by `algorithm`, told apart by its serial, with a signature
// hash of `hashBytes` (none: 0) and a key link to `provider` of `type` (none: null).
void AddCertificate(DWORD location, const wchar_t* store, const char* algorithm, BYTE serial, DWORD hashBytes,
                    DWORD type = 0, const wchar_t* provider = nullptr) {
    BYTE serialNumber[] = {serial}, emptyName[] = {0x30, 0x00}, signature[64] = {};
    CERT_INFO info{};
    info.SerialNumber = {1, serialNumber};
    info.SignatureAlgorithm.pszObjId = const_cast<char*>(algorithm);
    info.Issuer = info.Subject = {sizeof(emptyName), emptyName};
    setuputils::LocalMemory toBeSigned, encoded;
    DWORD size = 0;
    CryptEncodeObjectEx(X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &info, CRYPT_ENCODE_ALLOC_FLAG, nullptr,
                        toBeSigned.put(), &size);
    CERT_SIGNED_CONTENT_INFO content{{size, static_cast<BYTE*>(toBeSigned.get())},
                                     info.SignatureAlgorithm,
                                     {sizeof(signature), signature, 0}};
    CryptEncodeObjectEx(X509_ASN_ENCODING, X509_CERT, &content, CRYPT_ENCODE_ALLOC_FLAG, nullptr,
                        encoded.put(), &size);
    setuputils::CertStore opened(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, store));
    PCCERT_CONTEXT added = nullptr;
    ASSERT_TRUE(CertAddEncodedCertificateToStore(opened.get(), X509_ASN_ENCODING,
                                                 static_cast<BYTE*>(encoded.get()), size,
                                                 CERT_STORE_ADD_ALWAYS, &added));
    setuputils::CertContext owner(added);
    CRYPT_DATA_BLOB hash{hashBytes, signature};
    CRYPT_KEY_PROV_INFO link{
        const_cast<wchar_t*>(L"container"), const_cast<wchar_t*>(provider), type, 0, 0, nullptr, 0};
    EXPECT_TRUE(hashBytes == 0 ||
                CertSetCertificateContextProperty(added, CERT_SIGNATURE_HASH_PROP_ID, 0, &hash));
    EXPECT_TRUE(!provider || CertSetCertificateContextProperty(added, CERT_KEY_PROV_INFO_PROP_ID, 0, &link));
    EXPECT_TRUE(CertControlStore(opened.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr));
}

// Owner and access list of an HKLM key, as SDDL.
std::wstring Security(const std::wstring& path) {
    constexpr SECURITY_INFORMATION kParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    setuputils::LocalMemory descriptor, text;
    GetNamedSecurityInfoW((L"MACHINE\\" + path).c_str(), SE_REGISTRY_KEY, kParts, nullptr, nullptr, nullptr,
                          nullptr, reinterpret_cast<PSECURITY_DESCRIPTOR*>(descriptor.put()));
    ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.get(), SDDL_REVISION_1, kParts,
                                                         reinterpret_cast<LPWSTR*>(text.put()), nullptr);
    return text ? static_cast<const wchar_t*>(text.get()) : L"(unreadable)";
}

// Writes the user's seed and flags afresh; none leaves the value out, both none the key.
void SetSeed(const std::optional<RegistryData>& seed, const std::optional<RegistryData>& flags) {
    const std::wstring random = kProviderNode + L"\\Settings\\Users\\" + kUserSid + L"\\Random";
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kProviderNode);
    for (const auto& [name, data] : {std::pair{L"RootRandomSeed", seed}, {L"RootRandomSeedFlags", flags}}) {
        if (data) {
            RestoreRegistryValue(HKEY_LOCAL_MACHINE, random, name, data);
        }
    }
}

std::optional<RegistryData> RunOnceEntry(const std::wstring& hive, const std::wstring& name) {
    return ReadRegistryValue(HKEY_USERS, hive + kRunOnce, name);
}
void SetRunOnceEntry(const std::wstring& hive, const std::wstring& name, const std::wstring& command) {
    RestoreRegistryValue(HKEY_USERS, hive + kRunOnce, name, RegistryText(command));
}

// The patch settings, and what the stand-in's entry is to return.
void SetPatch(const std::wstring& image, DWORD result) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, kPatchSettings + L"\\ADVAPI32", L"Image Dll", image);
    WriteRegistryString(HKEY_LOCAL_MACHINE, kPatchSettings + L"\\ADVAPI32", L"Patch Dll64",
                        TestProgramPath(L"test_patch.dll"));
    WriteRegistryDword(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\Patch", L"Result", result);
}
DWORD PatchCount(const wchar_t* name) {
    return ReadRegistryDword(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\Patch", name).value_or(0);
}

// Each test removes what it made (RunOnce keys included: they run at the prefix's next start).
class ProviderDefaultsTest : public ::testing::Test {
protected:
    ProviderDefaultsTest() { g_calls.clear(); }
    void TearDown() override {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, kTypes + L"Type 001", L"Name", rsaDefault_);
        SetKeySecurity(kParent, L"D:(A;;KA;;;WD)");
        SetKeySecurity(kTrustedStore, L"D:(A;;KA;;;WD)");
        for (const std::wstring& path :
             {kTypes + L"Type 075", kTypeDefault, kTypes32, kProviderNode, kVendorKey, kPatchSettings,
              kStores + L"My", kStores + L"CA", kTrustedStore, kParent}) {
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, path);
        }
        for (const std::wstring& path : {kStores + L"My", kStores + L"Root", kStores + L"CA", kUserCrypto,
                                         std::wstring(L"Software\\SetupUtilsTests")}) {
            DeleteRegistryTree(HKEY_CURRENT_USER, path);
        }
        DeleteRegistryTree(HKEY_USERS, kUserSid + kRunOnce);
        DeleteRegistryTree(HKEY_USERS, kDefaultHive + kRunOnce);
        EXPECT_EQ(SnapshotChanges(before_, TakeSnapshot(kWatched)), Lines{});
    }

    const Snapshot before_ = TakeSnapshot(kWatched);
    const std::optional<RegistryData> rsaDefault_ =
        ReadRegistryValue(HKEY_LOCAL_MACHINE, kTypes + L"Type 001", L"Name");
    ActionSession session_;
    TestSession& session = session_.session();
    MessageRecorder& messages_ = session_.messages();
    MessageBoxes boxes_;
    ImportRedirect setProperty_{GetModuleHandleW(L"setuputils.dll"), "crypt32.dll",
                                "CertSetCertificateContextProperty",
                                reinterpret_cast<void*>(&RecordSetProperty)};
    ImportRedirect add_{GetModuleHandleW(L"setuputils.dll"), "crypt32.dll",
                        "CertAddCertificateContextToStore", reinterpret_cast<void*>(&RecordAdd)};
};
using CertificatesTest = ProviderDefaultsTest;
using RandomSeedingTest = ProviderDefaultsTest;
using RandomSeedingUserTest = ProviderDefaultsTest;
using RandomSeedingOnWindows7AndOnWindows10 = ProviderDefaultsTest;

// The old provider names and type 071 go, whole; nothing else, neighbours included.
TEST_F(ProviderDefaultsTest, DelNVCSPsDeletesTheListedKeysAndNothingElse) {
    const std::wstring providers = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\Norvane ";
    Watched listed{{{HKEY_LOCAL_MACHINE, providers + L"Cryptographic Service Provider"},
                    {HKEY_LOCAL_MACHINE, providers + L"SmartCard CSP"},
                    {HKEY_LOCAL_MACHINE, kTypes + L"Type 071"}},
                   {},
                   {}};
    for (const wchar_t* version : {L"94 ", L"2001 "}) {
        for (const wchar_t* kind : {L"Cryptographic Service Provider", L"KC1 CSP", L"KC2 CSP"}) {
            listed.keys.emplace_back(HKEY_LOCAL_MACHINE, providers + L"GOST R 34.10-" + version + kind);
        }
    }
    const std::wstring kept[] = {providers + L"GOST R 34.10-2012 KC1 CSP", providers + L"SmartCard CSP 2",
                                 kTypes + L"Type 0710"};
    for (const auto& [root, key] : listed.keys) {
        WriteRegistryString(root, key + L"\\Sub", L"Name", L"x");
    }
    for (const std::wstring& key : kept) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, key, L"Probe", L"x");
    }
    const Snapshot before = TakeSnapshot(kWatched);
    const Lines removed = SnapshotChanges(TakeSnapshot(listed), {});
    EXPECT_EQ(session_.Run("DelNVCSPs"), 0u);
    EXPECT_EQ(SnapshotChanges(before, TakeSnapshot(kWatched)), removed);
    for (const std::wstring& key : kept) {
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, key);
    }
}

// Which machine defaults stay and which replace them; the user's default goes
// where the list names the type. A type without a machine default comes first:
// it is left alone. (Wine finds a user default only beside HKCU keys made here.)
TEST_F(ProviderDefaultsTest, FixDefaultProviderKeepsOrReplacesByTypeVersionAndWhetherItWorks) {
    const TestProviderBehaviour current{.version = 0x300, .answersParam129 = true, .answersParam138 = true};
    const TestProviderBehaviour no138{.version = 0x3FF, .answersParam129 = true};
    const std::wstring kOther = L"Test Other CSP", kPackage = L"Test Package CSP",
                       kDefault = L"Test Default CSP";
    const std::wstring acquired = L"CPAcquireContext 0 0xF0000040;";
    const std::wstring examined = acquired + L"CPGetProvParam 5 0x0;CPGetProvParam 129 0x0;"
                                             L"CPGetProvParam 138 0x0;CPReleaseContext 0 0x0;";
    const struct {
        const char* what;
        DWORD type;
        TestProviderBehaviour defaultProvider, packageProvider, otherProvider;
        std::wstring expected, calls;
        const wchar_t* list = nullptr; // none: "80:Test Package 80 CSP/<type>:Test Package CSP"
    } cases[] = {
        {"GOST default of version 2", 75, kWorks, kWorks, kFails, kPackage, examined},
        {"current GOST default", 75, current, kWorks, kFails, kDefault, examined},
        {"version 3 without 138", 75, no138, kWorks, kFails, kPackage, examined},
        {"GOST default of version 2, package broken", 75, kWorks, kFails, kWorks, kDefault, examined},
        {"RSA default of version 2", 1, kWorks, kWorks, kFails, kDefault, examined},
        {"broken RSA default", 1, kFails, kWorks, kFails, kPackage, acquired},
        {"broken RSA default, package broken", 1, kFails, kFails, kWorks,
         L"Microsoft Strong Cryptographic Provider", acquired},
        // Enumerated: the broken one, the default again, the other that works.
        {"broken GOST default, package broken", 75, kFails, kFails, kWorks, kOther, acquired + acquired},
        {"empty list", 75, kWorks, kWorks, kWorks, kDefault, L"", L""},
        {"no colon", 75, kWorks, kWorks, kWorks, kDefault, L"", L"75 Test Package CSP"},
        {"no entry", 75, kWorks, kWorks, kWorks, kDefault, L"", L"/"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TestProvider defaultProvider(kDefault, c.type, c.defaultProvider),
            package(kPackage, c.type, c.packageProvider);
        TestProvider broken(L"Test Broken CSP", c.type, kFails), other(kOther, c.type, c.otherProvider);
        TestProvider later(L"Test Zulu CSP", c.type, kWorks), package80(L"Test Package 80 CSP", 80);
        const std::wstring number = c.type == 1 ? L"001" : L"075";
        const std::wstring machineType = kTypes + L"Type " + number,
                           userType = kUserCrypto + L"\\Provider Type " + number;
        WriteRegistryString(HKEY_LOCAL_MACHINE, machineType, L"Name", kDefault);
        WriteRegistryString(HKEY_CURRENT_USER, userType, L"", L"");
        WriteRegistryString(HKEY_CURRENT_USER, kUserCrypto + L"\\Defaults\\Provider\\" + kDefault, L"", L"");
        ASSERT_TRUE(CryptSetProviderExW(kDefault.c_str(), c.type, nullptr, CRYPT_USER_DEFAULT));
        const std::wstring list = c.list ? c.list : L"80:Test Package 80 CSP/" + number + L":" + kPackage;
        EXPECT_EQ(session_.Run("FixDefaultProvider", list), 0u);
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, machineType, L"Name"), c.expected);
        EXPECT_EQ(ReadRegistryString(HKEY_CURRENT_USER, userType, L"Name"),
                  c.list ? std::optional(kDefault) : std::nullopt);
        EXPECT_EQ(defaultProvider.TakeCalls(), c.calls);
        EXPECT_EQ(package80.TakeCalls(), L"");
        DeleteRegistryTree(HKEY_CURRENT_USER, kUserCrypto);
    }
    EXPECT_TRUE(messages_.all().empty());
}

// Only winscard, the first checked, can be kept from loading: the library imports the others.
TEST_F(ProviderDefaultsTest, CheckDllSetsTheResultOnlyWhenAllLoadAndReportsTheFirstThatFails) {
    EXPECT_EQ(session_.Run("CheckDll"), 0u);
    EXPECT_EQ(session.Property(L"CHECKDLLRESULT64"), L"1");
    session.SetProperty(L"CHECKDLLRESULT64", L"");
    WriteRegistryString(HKEY_CURRENT_USER, L"Software\\Wine\\DllOverrides", L"winscard", L"");
    EXPECT_EQ(session_.Run("CheckDll"), 0u);
    RestoreRegistryValue(HKEY_CURRENT_USER, L"Software\\Wine\\DllOverrides", L"winscard", std::nullopt);
    EXPECT_EQ(session.Property(L"CHECKDLLRESULT64"), L"");
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR),
              (std::vector<Lines>{{L"6666", L"winscard.dll", L"126"}}));
}

// A service of the vendor's counts, and so does a package found by its upgrade code.
TEST_F(ProviderDefaultsTest, CheckVipNetFindsTheServiceOrAnInstalledPackage) {
    auto found = [&] {
        session.SetProperty(L"VIPNETFOUND", L"");
        EXPECT_EQ(session_.Run("CheckVipNet"), 0u);
        return session.Property(L"VIPNETFOUND");
    };
    EXPECT_EQ(found(), L"");
    {
        TestDriverService service(L"itcspe");
        EXPECT_EQ(found(), L"1");
    }
    InstalledProduct vipNet(NewGuid(), setuputils::kVipNetUpgradeCodes[2], L"ViPNet CSP stand-in");
    EXPECT_EQ(found(), L"1");
}

// The installed products of the list but the package's own, over the package's
// dialog (by name, else name and version); never alone or with a silent UI.
TEST_F(ProviderDefaultsTest, AnotherCSPDetectedListsTheOtherInstalledProductsOverTheInstallerDialog) {
    const auto& codes = setuputils::kConflictingProductCodes;
    session.SetProperty(L"ProductCode", codes[2]);
    session.SetProperty(L"AnotherCSPDetected", L"Other providers are installed:");
    session.SetProperty(L"WarningTitle", L"Warning");
    session.SetProperty(L"UILevel", L"5");
    InstalledProduct own(codes[2], NewGuid(), L"Own CSP", L"5.0.1");
    EXPECT_EQ(session_.Run("AnotherCSPDetected"), 0u);
    InstalledProduct first(codes[0], NewGuid(), L"First GOST CSP"),
        last(codes[12], NewGuid(), L"Last GOST CSP");
    session.SetProperty(L"UILevel", L"2");
    EXPECT_EQ(session_.Run("AnotherCSPDetected"), 0u);
    EXPECT_EQ(boxes_.calls(), Lines{});
    const StandInWindow withVersion = MakeStandInWindow(L"#32770", L"Own CSP 5.0.1");
    const StandInWindow unrelated = MakeStandInWindow(L"#32770", L"Unrelated dialog"); // the topmost
    session.SetProperty(L"UILevel", L"5");
    EXPECT_EQ(session_.Run("AnotherCSPDetected"), 0u);
    const StandInWindow plain = MakeStandInWindow(L"#32770", L"Own CSP");
    EXPECT_EQ(session_.Run("AnotherCSPDetected"), 0u);
    const std::wstring text = L"Other providers are installed:\nFirst GOST CSP\nLast GOST CSP\n";
    EXPECT_EQ(boxes_.calls(), (Lines{BoxCall(withVersion.get(), text, L"Warning", kWarningStyle),
                                     BoxCall(plain.get(), text, L"Warning", kWarningStyle)}));
}

// Owned by the installer's window titled with, else without, the version, else any.
TEST_F(ProviderDefaultsTest, StrengthenedKeyWarningIsOwnedByTheInstallerWindowOfTheProduct) {
    const std::vector<std::wstring> cases[] = {
        {L"setuputils test1.0.0 Setup", L"setuputils test Setup", L"Other"},
        {L"setuputils test Setup", L"Other", L"setuputils test1.0.0 Setup!"},
        {L"Another product Setup"},
        {},
    };
    session.SetProperty(L"StrengthenedKeyWarningText", L"Keys will be strengthened.");
    session.SetProperty(L"WarningTitle", L"Warning");
    session.SetProperty(L"ProductLanguage", L"1033");
    for (const auto& titles : cases) { // the owner first; none: no owner
        std::vector<StandInWindow> windows;
        for (const std::wstring& title : titles) {
            windows.push_back(MakeStandInWindow(L"MsiDialogCloseClass", title));
        }
        boxes_.calls().clear();
        EXPECT_EQ(session_.Run("StrengthenedKeyWarning"), 0u);
        const HWND owner = windows.empty() ? nullptr : windows[0].get();
        EXPECT_EQ(boxes_.calls(),
                  Lines{BoxCall(owner, L"Keys will be strengthened.", L"Warning", kWarningStyle)});
    }
}

// Written once into the 32-bit view (its "WOW6432Node" path). "Reader" is
// written without its terminator, which the registry adds back.
TEST_F(ProviderDefaultsTest, RegCreateSlot0EntryWritesTheSlotOnceAndNeverTouchesItAgain) {
    const std::wstring types32 = kTypes32 + L"\\Provider Types\\Type ";
    const std::wstring slot = L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion\\PKCS11\\slot0";
    const std::optional<RegistryData> reader = RegistryText(L"REGISTRY"),
                                      placeholder = RegistryData{REG_SZ, {0}};
    auto values = [&] {
        return std::vector{ReadRegistryValue(HKEY_LOCAL_MACHINE, slot, L"Reader"),
                           ReadRegistryValue(HKEY_LOCAL_MACHINE, slot, L"ProvRSA"),
                           ReadRegistryValue(HKEY_LOCAL_MACHINE, slot, L"provGOST")};
    };
    WriteRegistryString(HKEY_LOCAL_MACHINE, types32 + L"001", L"Image Path", L"rsa.dll");
    WriteRegistryString(HKEY_LOCAL_MACHINE, types32 + L"001", L"Name", L"RSA 32");
    EXPECT_EQ(session_.Run("RegCreateSlot0Entry"), 0u);
    const std::vector first = {reader, std::optional(RegistryText(L"RSA 32")), placeholder};
    EXPECT_EQ(values(), first);
    WriteRegistryString(HKEY_LOCAL_MACHINE, types32 + L"075", L"Name", L"GOST 32");
    EXPECT_EQ(session_.Run("RegCreateSlot0Entry"), 0u);
    EXPECT_EQ(values(), first);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, slot);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, types32 + L"001");
    EXPECT_EQ(session_.Run("RegCreateSlot0Entry"), 0u);
    EXPECT_EQ(values(), (std::vector{reader, placeholder, std::optional(RegistryText(L"GOST 32"))}));
}

// The verifier stand-in records its command line, runs 2 s and exits with 7, which does not matter.
TEST_F(ProviderDefaultsTest, SetupCSPTestWaitsForTheProgramAndFailsWhenItCannotRunIt) {
    const std::wstring program = L"\"" + TestProgramPath(L"test_verifier.exe") + L"\" -file ";
    const std::wstring image = std::wstring(259 - program.size(), L'x'); // the longest line read
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\"";
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(session_.Run("SetupCSPTest", program + image), 0u);
    EXPECT_GE(GetTickCount64() - start, 2000u);
    EXPECT_TRUE(ReadRegistryString(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\Verifier", image));
    EXPECT_EQ(messages_.InfoTexts(),
              (Lines{program + image, L"CreateProcess()...", L"WaitForSingleObject()..."}));
    messages_.Clear();
    EXPECT_EQ(session_.Run("SetupCSPTest", program + image + L"x"), 1603u); // logs no line
    EXPECT_EQ(session_.Run("SetupCSPTest", absent), 1603u);
    EXPECT_EQ(messages_.InfoTexts(),
              (Lines{absent, L"CreateProcess()...", L"Info 2.CreateProcess() failed: 2"}));
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR),
              (std::vector<Lines>{{L"666", L"SetupCSPTest", L"MsiGetProperty", L"234"}, {L"25030"}}));
}

// Stores that do not exist are neither made nor walked. Wrong-sized hashes of GOST
// signatures go, in every store; the vendor's or nameless key links of old types
// move to 75, nameless (rules: native tests).
TEST_F(CertificatesTest, WrongSignatureHashesAreDroppedAndOutdatedKeyLinksMove) {
    EXPECT_EQ(session_.Run("FixPrivateKeyLinks"), 0u);
    EXPECT_EQ(session_.Run("ClearWrongUserCertificateProperties"), 0u);
    for (const std::wstring store : {L"My", L"Root", L"CA"}) {
        EXPECT_FALSE(RegistryKeyExists(HKEY_CURRENT_USER, kStores + store)) << store;
        EXPECT_FALSE(store != L"Root" && RegistryKeyExists(HKEY_LOCAL_MACHINE, kStores + store)) << store;
    }
    EXPECT_EQ(session_.Run("ClearWrongMachineCertificateProperties"), 0u);
    EXPECT_EQ(std::exchange(g_calls, {}), CallSet{});
    AddCertificate(kUser, L"My", kGost512, 1, 64);
    AddCertificate(kUser, L"My", kGost512, 2, 32);
    AddCertificate(kUser, L"My", kGost256, 5, 20);
    AddCertificate(kUser, L"My", szOID_RSA_SHA256RSA, 6, 20);
    AddCertificate(kUser, L"My", kGost256, 7, 0);
    AddCertificate(kUser, L"Root", kGost256, 8, 64);
    AddCertificate(kUser, L"CA", kGost512, 9, 32);
    AddCertificate(kMachine, L"CA", kGost512, 10, 20);
    AddCertificate(kMachine, L"My", kGost256, 11, 32);
    AddCertificate(kUser, L"My", kGost256, 21, 0, 71, L"");
    AddCertificate(kUser, L"My", kGost256, 22, 0, 2, L"Norvane GOST CSP");
    AddCertificate(kUser, L"My", kGost256, 23, 0, 71, L"Other Vendor GOST CSP");
    EXPECT_EQ(session_.Run("ClearWrongMachineCertificateProperties"), 0u);
    EXPECT_EQ(std::exchange(g_calls, {}), CallSet{L"10 drop 15"});
    // The user's CA store shows the machine's too (in Wine, every store does).
    EXPECT_EQ(session_.Run("ClearWrongUserCertificateProperties"), 0u);
    EXPECT_EQ(std::exchange(g_calls, {}),
              (CallSet{L"10 drop 15", L"2 drop 15", L"5 drop 15", L"8 drop 15", L"9 drop 15"}));
    EXPECT_EQ(session_.Run("FixPrivateKeyLinks"), 0u);
    EXPECT_EQ(std::exchange(g_calls, {}),
              (CallSet{L"21 add 3", L"21 set 2 type 75 name ''", L"22 add 3", L"22 set 2 type 75 name ''"}));
}

// The localized names get their parent key's owner and access list, each failure logged;
// the settings go whether the store is registered or not, a missing one logged.
TEST_F(CertificatesTest, StoreIsAddedWithTheParentsRightsAndDeletedWithTheSettings) {
    const std::wstring localizedNames = kParent + L"\\LocalizedNames", settings = kVendorKey + L"\\Settings";
    ASSERT_EQ(SetKeySecurity(kParent, L"O:SYD:P(A;;KA;;;WD)(A;CI;KR;;;BU)"), 0);
    ASSERT_EQ(SetKeySecurity(localizedNames, L"O:BAD:P(A;;KA;;;WD)"), 0);
    const std::wstring parent = Security(kParent);
    ASSERT_NE(Security(localizedNames), parent);
    EXPECT_EQ(session_.Run("AddNVCertStore"), 0u);
    EXPECT_EQ(Security(localizedNames), parent);
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTrustedStore));
    EXPECT_EQ(messages_.InfoTexts(), Lines{L"Registry rights was changed"});
    for (const bool registered : {true, false}) {
        messages_.Clear();
        WriteRegistryDword(HKEY_LOCAL_MACHINE, settings + L"\\Users\\S-1-5-18", L"Seeded", 1);
        if (!registered) { // Wine's unregistering leaves the key
            DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTrustedStore);
        }
        EXPECT_EQ(session_.Run("DelAllReg"), 0u);
        EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, settings));
        EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kVendorKey));
        EXPECT_EQ(messages_.InfoTexts(), registered ? Lines{} : Lines{L"CertUnregisterSystemStore() fail"});
    }
    // A store that cannot be registered, no parent and no key to change.
    messages_.Clear();
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kParent);
    EXPECT_EQ(SetKeySecurity(kTrustedStore, L"D:(A;;KR;;;WD)"), ERROR_SUCCESS);
    EXPECT_EQ(session_.Run("AddNVCertStore"), 0u);
    EXPECT_EQ(messages_.InfoTexts(), (Lines{L"CertRegisterSystemStore() fail", L"get_rights() fail",
                                            L"get_rights() fail", L"Registry rights was changed"}));
}

// Only binary seeds with DWORD flags of the initialised bit count: a seeded user keeps an
// older RunOnce entry and calls nothing; the others get the entry and ask the provider for
// its hardware generator. The default hive has no seed: it always gets the entry.
TEST_F(RandomSeedingUserTest, SeededUsersAreLeftAloneOthersAreScheduledAndAskForTheHardwareGenerator) {
    TestProvider provider(L"Test GOST CSP", 80); // the default of the package's type
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTypeDefault, L"Name", L"Test GOST CSP");
    const std::wstring command = L"C:\\p\\rng.exe /user /q";
    const ULONGLONG qword = 2;
    const struct {
        std::optional<RegistryData> seed, flags;
        bool seeded;
    } cases[] = {
        {kSeed, RegistryDwordData(0x2), true},
        {kSeed, RegistryDwordData(0x3), true},
        {MakeRegistryData(REG_BINARY, "", 0), RegistryDwordData(0x2), true},
        {kSeed, RegistryDwordData(0x1), false},
        {RegistryText(L"seed"), RegistryDwordData(0x2), false},
        {RegistryDwordData(7), RegistryDwordData(0x2), false},
        {std::nullopt, RegistryDwordData(0x2), false},
        {kSeed, std::nullopt, false},
        {kSeed, RegistryDwordData(0x2, REG_BINARY), false},
        {kSeed, MakeRegistryData(REG_DWORD, &qword, sizeof(qword)), false}, // more than a DWORD holds
        {std::nullopt, std::nullopt, false},                                // no seed key at all
    };
    for (const auto& c : cases) {
        SetSeed(c.seed, c.flags);
        SetRunOnceEntry(kUserSid, L"Seed", L"older");
        SetRunOnceEntry(kDefaultHive, L"Seed", L"older");
        EXPECT_EQ(session_.Run("InitializeHardRng", L"Seed/" + command), 0u);
        EXPECT_EQ(RunOnceEntry(kUserSid, L"Seed"), RegistryText(c.seeded ? L"older" : command)) << c.seeded;
        EXPECT_EQ(RunOnceEntry(kDefaultHive, L"Seed"), RegistryText(command));
        EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 0u);
        EXPECT_EQ(provider.TakeCalls(), c.seeded ? L"" : kAskedForTheGenerator) << c.seeded;
    }
    EXPECT_TRUE(messages_.all().empty());
    // The user's action fails only without a provider to acquire.
    provider.SetBehaviour(kFails);
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 1603u);
    EXPECT_EQ(provider.TakeCalls(), kAcquire);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTypeDefault); // no default provider of the type
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 1603u);
    const auto errors = messages_.FieldsOf(INSTALLMESSAGE_ERROR);
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(errors[0], (Lines{L"666", L"InitializeHardRngUser", L"InitializeHardRng",
                                std::to_wstring(NTE_KEYSET_ENTRY_BAD)}));
    EXPECT_EQ(errors[1][1], L"InitializeHardRngUser");
    EXPECT_EQ(boxes_.calls(), Lines{});
}

// "InstallCSP" when no name is given; no RunOnce key is made where there is none;
// an empty command removes the entry from everyone, seeded or not.
TEST_F(RandomSeedingTest, RunOnceEntryNamedByDefaultAndRemovedFromEveryoneByAnEmptyCommand) {
    SetRunOnceEntry(kUserSid, L"Other", L"other");
    EXPECT_EQ(session_.Run("InitializeHardRng", L"C:\\p\\rng.exe"), 0u);
    EXPECT_EQ(RunOnceEntry(kUserSid, L"InstallCSP"), RegistryText(L"C:\\p\\rng.exe"));
    EXPECT_FALSE(RegistryKeyExists(HKEY_USERS, kDefaultHive + kRunOnce));
    SetSeed(kSeed, RegistryDwordData(0x2));
    SetRunOnceEntry(kDefaultHive, L"InstallCSP", L"C:\\p\\rng.exe");
    EXPECT_EQ(session_.Run("InitializeHardRng", L"InstallCSP/"), 0u);
    EXPECT_FALSE(RunOnceEntry(kUserSid, L"InstallCSP"));
    EXPECT_FALSE(RunOnceEntry(kDefaultHive, L"InstallCSP"));
    EXPECT_EQ(RunOnceEntry(kUserSid, L"Other"), RegistryText(L"other"));
}

// The image loads before the patch; a failed patch is freed, a successful one stays.
TEST_F(RandomSeedingTest, LegacyPatchLoadsImageThenPatchAndKeepsOnlyASuccessfulPatch) {
    const std::wstring patch = TestProgramPath(L"test_patch.dll");
    EXPECT_EQ(setuputils::ApplyLegacyAdvapiPatch(), nullptr); // no settings
    SetPatch(L"C:\\missing\\image.dll", 1);
    EXPECT_EQ(setuputils::ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Loads"), 0u);
    SetPatch(L"advapi32.dll", 0);
    EXPECT_EQ(setuputils::ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Calls"), 1u);
    EXPECT_EQ(GetModuleHandleW(patch.c_str()), nullptr);
    SetPatch(L"advapi32.dll", 1);
    HMODULE patched = setuputils::ApplyLegacyAdvapiPatch();
    EXPECT_NE(patched, nullptr);
    EXPECT_EQ(GetModuleHandleW(patch.c_str()), patched);
    EXPECT_EQ(setuputils::ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Loads"), 2u);
    EXPECT_EQ(PatchCount(L"Calls"), 2u);
    FreeLibrary(patched);
}

// The warning's owner is the installer's dialog of the given title, else any dialog.
TEST_F(RandomSeedingUserTest, RefusedHardwareGeneratorShowsTheWarningOverTheInstallerDialog) {
    TestProvider provider(L"Test GOST CSP", 80, {.hardwareRngResult = static_cast<DWORD>(NTE_FAIL)});
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTypeDefault, L"Name", L"Test GOST CSP");
    const StandInWindow installer = MakeStandInWindow(L"#32770", L"Test Setup");
    const StandInWindow other = MakeStandInWindow(L"#32770", L"Other Dialog");
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Test Setup/Message / with a slash"), 0u);
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Message"), 0u);
    constexpr UINT kStyle = MB_ICONWARNING | MB_SETFOREGROUND | MB_TOPMOST;
    EXPECT_EQ(boxes_.calls(), (Lines{BoxCall(installer.get(), L"Message / with a slash", L"Caption", kStyle),
                                     BoxCall(other.get(), L"Message", L"Caption", kStyle)}));
    EXPECT_EQ(provider.TakeCalls(), kAskedForTheGenerator + kAskedForTheGenerator);
}

// Before Windows 8 the patch is attempted once per process: this must stay the
// only seeding run of its program under Windows 7 (6.1).
TEST_F(RandomSeedingOnWindows7AndOnWindows10, LegacyPatchAttemptedOncePerProcessBeforeWindows8) {
    const DWORD expected = setuputils::GetNtVersion().major == 6 ? 1 : 0;
    SetPatch(L"advapi32.dll", 0);
    session_.Run("InitializeHardRngUser", L"");
    session_.Run("InitializeHardRngUser", L"");
    EXPECT_EQ(PatchCount(L"Loads"), expected);
    EXPECT_EQ(PatchCount(L"Calls"), expected);
}

} // namespace
} // namespace harness
