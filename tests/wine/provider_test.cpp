// The provider's and the seeding's actions against Wine, with the test provider
// DLL, stand-in installer windows (on Xvfb) and the message boxes asked for.
#include <gtest/gtest.h>

#include <windows.h>
#include <wincrypt.h>

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
#include "security_text.h"
#include "snapshot.h"
#include "test_provider.h"

namespace harness {
namespace {

const std::wstring kTypes = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\";
const std::wstring kUserCrypto = L"Software\\Microsoft\\Cryptography";
const std::wstring kTypes32 = L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography\\Defaults";
const Watched kWatched{{HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Cryptography\\Defaults"},
                       {HKEY_LOCAL_MACHINE, L"SOFTWARE\\WOW6432Node"},
                       {HKEY_CURRENT_USER, kUserCrypto}};
constexpr DWORD kUser = CERT_SYSTEM_STORE_CURRENT_USER, kMachine = CERT_SYSTEM_STORE_LOCAL_MACHINE;
const std::wstring kStores = L"Software\\Microsoft\\SystemCertificates\\";
const std::wstring kParent =
    L"SOFTWARE\\Microsoft\\Cryptography\\OID\\EncodingType 0\\CryptDllFindLocalizedName";
const std::wstring kTrustedStore = kStores + L"NorvaneTrustedStore";
constexpr BYTE kGost256 = 2, kGost512 = 3; // signature algorithms 1.2.643.7.1.1.3.<n>
const std::wstring kUserSid = L"S-1-5-21-0-0-0-1000", kDefaultHive = L".Default";
const std::wstring kRunOnce = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
const std::wstring kPatchSettings = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnPatches";
const std::wstring kProviderNode = L"SOFTWARE\\WOW6432Node\\Norvane", kVendorKey = L"SOFTWARE\\Norvane";
const std::wstring kTypeDefault = kTypes + L"Type 080";
const RegistryData kSeed = MakeRegistryData(REG_BINARY, "0123456789abcdef", 16);
const std::wstring kAskedForTheGenerator =
    L"CPAcquireContext 0 0xF0000000;CPSetProvParam 38 0x0;CPReleaseContext 0 0x0;";
constexpr UINT kWarningStyle = MB_ICONEXCLAMATION | MB_SETFOREGROUND | MB_TOPMOST;

// The library's property changes, as "<serial> <property>[ <key link>]": Wine keeps none in a system store.
std::multiset<std::wstring> g_calls;

BOOL WINAPI RecordSetProperty(PCCERT_CONTEXT certificate, DWORD property, DWORD flags, const void* data) {
    std::wstring call =
        std::to_wstring(certificate->pCertInfo->SerialNumber.pbData[0]) + L" " + std::to_wstring(property);
    if (const auto* link = static_cast<const CRYPT_KEY_PROV_INFO*>(data); link != nullptr) {
        call += L" " + std::to_wstring(link->dwProvType) + L" '" +
                (link->pwszProvName != nullptr ? link->pwszProvName : L"") + L"'";
    }
    g_calls.insert(call);
    return CertSetCertificateContextProperty(certificate, property, flags, data);
}

// A certificate in DER: serial 0, signed by 1.2.643.7.1.1.3.0 (twice), empty names, an empty key.
constexpr char kCertificate[] =
    "\x30\x55\x30\x44\x02\x01\x00\x30\x0A\x06\x08\x2A\x85\x03\x07\x01\x01\x03\x00"
    "\x30\x00\x30\x1E\x17\x0D"
    "200101000000Z\x17\x0D"
    "491231235959Z\x30\x00\x30\x0F\x30\x0A\x06\x08\x2A\x85\x03\x07\x01\x01\x01\x01"
    "\x03\x01\x00\x30\x0A\x06\x08\x2A\x85\x03\x07\x01\x01\x03\x00\x03\x01\x00";

// Stores a certificate signed by GOST `algorithm`, told apart by its serial, with a signature
// hash of `hashBytes` (none: 0) and a key link to `provider` of `type` (none: null).
void AddCertificate(DWORD location, const wchar_t* store, BYTE algorithm, BYTE serial, DWORD hashBytes,
                    DWORD type = 0, const wchar_t* provider = nullptr) {
    std::vector<BYTE> der(kCertificate, kCertificate + sizeof(kCertificate) - 1);
    der[6] = serial;
    der[18] = der[der.size() - 4] = algorithm;
    setuputils::CertStore opened(CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, location, store));
    PCCERT_CONTEXT added = nullptr;
    ASSERT_TRUE(CertAddEncodedCertificateToStore(opened.get(), X509_ASN_ENCODING, der.data(), der.size(),
                                                 CERT_STORE_ADD_ALWAYS, &added));
    setuputils::CertContext owner(added);
    CRYPT_DATA_BLOB hash{hashBytes, der.data()};
    CRYPT_KEY_PROV_INFO link{
        const_cast<wchar_t*>(L"container"), const_cast<wchar_t*>(provider), type, 0, 0, nullptr, 0};
    EXPECT_TRUE(hashBytes == 0 ||
                CertSetCertificateContextProperty(added, CERT_SIGNATURE_HASH_PROP_ID, 0, &hash));
    EXPECT_TRUE(!provider || CertSetCertificateContextProperty(added, CERT_KEY_PROV_INFO_PROP_ID, 0, &link));
    EXPECT_TRUE(CertControlStore(opened.get(), 0, CERT_STORE_CTRL_COMMIT, nullptr));
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
};
using CertificatesTest = ProviderDefaultsTest;
using RandomSeedingTest = ProviderDefaultsTest;
using RandomSeedingUserTest = ProviderDefaultsTest;
using RandomSeedingOnWindows7AndOnWindows10 = ProviderDefaultsTest;

// Which machine defaults stay and which replace them; the user's default goes (made as Wine finds it).
TEST_F(ProviderDefaultsTest, FixDefaultProviderKeepsOrReplacesByTypeVersionAndWhetherItWorks) {
    const std::wstring works = L"Test Default CSP", broken = L"Test Broken Default CSP",
                       package = L"Test Package CSP", brokenPackage = L"Test Broken Package CSP";
    const struct {
        DWORD type;
        std::wstring defaultProvider, packageProvider, expected;
    } cases[] = {
        {75, works, package, package},     // a GOST default of version 2 gives way
        {75, works, brokenPackage, works}, // but not to a broken one
        {1, works, package, works},        // other types keep what works
        {1, broken, brokenPackage, L"Microsoft Strong Cryptographic Provider"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.defaultProvider + L" " + c.packageProvider);
        TestProvider defaultProvider(c.defaultProvider, c.type), packageProvider(c.packageProvider, c.type);
        const std::wstring number = c.type == 1 ? L"001" : L"075";
        const std::wstring machineType = kTypes + L"Type " + number,
                           userType = kUserCrypto + L"\\Provider Type " + number;
        WriteRegistryString(HKEY_LOCAL_MACHINE, machineType, L"Name", c.defaultProvider);
        WriteRegistryString(HKEY_CURRENT_USER, userType, L"", L"");
        WriteRegistryString(HKEY_CURRENT_USER, kUserCrypto + L"\\Defaults\\Provider\\" + works, L"", L"");
        ASSERT_TRUE(CryptSetProviderExW(works.c_str(), c.type, nullptr, CRYPT_USER_DEFAULT));
        EXPECT_EQ(session_.Run("FixDefaultProvider", number + L":" + c.packageProvider), 0u);
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, machineType, L"Name"), c.expected);
        EXPECT_EQ(ReadRegistryString(HKEY_CURRENT_USER, userType, L"Name"), std::nullopt);
        DeleteRegistryTree(HKEY_CURRENT_USER, kUserCrypto);
    }
}

// Only winscard, the first checked, can be kept from loading: the library imports the others.
TEST_F(ProviderDefaultsTest, CheckDllSetsTheResultOnlyWhenAllLoad) {
    EXPECT_EQ(session_.Run("CheckDll"), 0u);
    EXPECT_EQ(session.Property(L"CHECKDLLRESULT64"), L"1");
    session.SetProperty(L"CHECKDLLRESULT64", L"");
    WriteRegistryString(HKEY_CURRENT_USER, L"Software\\Wine\\DllOverrides", L"winscard", L"");
    EXPECT_EQ(session_.Run("CheckDll"), 0u);
    RestoreRegistryValue(HKEY_CURRENT_USER, L"Software\\Wine\\DllOverrides", L"winscard", std::nullopt);
    EXPECT_EQ(session.Property(L"CHECKDLLRESULT64"), L"");
}

// A package found by its upgrade code counts as found.
TEST_F(ProviderDefaultsTest, CheckVipNetFindsAnInstalledPackage) {
    EXPECT_EQ(session_.Run("CheckVipNet"), 0u);
    EXPECT_EQ(session.Property(L"VIPNETFOUND"), L"");
    InstalledProduct vipNet(NewGuid(), setuputils::kVipNetUpgradeCodes[2], L"ViPNet CSP stand-in");
    EXPECT_EQ(session_.Run("CheckVipNet"), 0u);
    EXPECT_EQ(session.Property(L"VIPNETFOUND"), L"1");
}

// The installed products of the list but the package's own, over the package's dialog.
TEST_F(ProviderDefaultsTest, AnotherCSPDetectedListsTheOtherInstalledProductsOverTheInstallerDialog) {
    const auto& codes = setuputils::kConflictingProductCodes;
    session.SetProperty(L"ProductCode", codes[2]);
    session.SetProperty(L"AnotherCSPDetected", L"Other providers are installed:");
    session.SetProperty(L"WarningTitle", L"Warning");
    session.SetProperty(L"UILevel", L"5");
    InstalledProduct own(codes[2], NewGuid(), L"Own CSP", L"5.0.1");
    const StandInWindow dialog = MakeStandInWindow(L"#32770", L"Own CSP 5.0.1");
    InstalledProduct first(codes[0], NewGuid(), L"First GOST CSP"),
        last(codes[12], NewGuid(), L"Last GOST CSP");
    EXPECT_EQ(session_.Run("AnotherCSPDetected"), 0u);
    const std::wstring text = L"Other providers are installed:\nFirst GOST CSP\nLast GOST CSP\n";
    EXPECT_EQ(boxes_.calls(), Lines{BoxCall(dialog.get(), text, L"Warning", kWarningStyle)});
}

// Owned by the installer's window of the product, not the topmost one.
TEST_F(ProviderDefaultsTest, StrengthenedKeyWarningIsOwnedByTheInstallerWindowOfTheProduct) {
    session.SetProperty(L"StrengthenedKeyWarningText", L"Keys will be strengthened.");
    session.SetProperty(L"WarningTitle", L"Warning");
    session.SetProperty(L"ProductLanguage", L"1033");
    const StandInWindow own = MakeStandInWindow(L"MsiDialogCloseClass", L"setuputils test1.0.0 Setup");
    const StandInWindow other = MakeStandInWindow(L"MsiDialogCloseClass", L"Other");
    EXPECT_EQ(session_.Run("StrengthenedKeyWarning"), 0u);
    const std::wstring text = L"Keys will be strengthened.";
    EXPECT_EQ(boxes_.calls(), Lines{BoxCall(own.get(), text, L"Warning", kWarningStyle)});
}

// The verifier stand-in records its command line, runs 2 s and exits with 7, which does not matter.
TEST_F(ProviderDefaultsTest, SetupCSPTestWaitsForTheProgram) {
    const std::wstring program = L"\"" + TestProgramPath(L"test_verifier.exe") + L"\" -file image";
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(session_.Run("SetupCSPTest", program), 0u);
    EXPECT_GE(GetTickCount64() - start, 2000u);
    EXPECT_TRUE(ReadRegistryString(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\Verifier", L"image"));
}

// Wrong-sized hashes of GOST signatures go, in every store; outdated key links move to 75, nameless.
TEST_F(CertificatesTest, WrongSignatureHashesAreDroppedAndOutdatedKeyLinksMove) {
    AddCertificate(kUser, L"My", kGost512, 2, 32);
    AddCertificate(kUser, L"CA", kGost512, 9, 32);
    AddCertificate(kMachine, L"CA", kGost512, 10, 20);
    AddCertificate(kMachine, L"My", kGost256, 11, 32);
    AddCertificate(kUser, L"My", kGost256, 21, 0, 71, L"");
    AddCertificate(kUser, L"My", kGost256, 22, 0, 2, L"Norvane GOST CSP");
    EXPECT_EQ(session_.Run("ClearWrongMachineCertificateProperties"), 0u);
    EXPECT_EQ(std::exchange(g_calls, {}), std::multiset<std::wstring>{L"10 15"});
    // The user's CA store shows the machine's too (in Wine, every store does).
    EXPECT_EQ(session_.Run("ClearWrongUserCertificateProperties"), 0u);
    EXPECT_EQ(std::exchange(g_calls, {}), (std::multiset<std::wstring>{L"10 15", L"2 15", L"9 15"}));
    EXPECT_EQ(session_.Run("FixPrivateKeyLinks"), 0u);
    EXPECT_EQ(g_calls, (std::multiset<std::wstring>{L"21 2 75 ''", L"22 2 75 ''"}));
}

// The localized names get their parent key's access list; the settings go.
TEST_F(CertificatesTest, StoreIsAddedWithTheParentsRightsAndDeletedWithTheSettings) {
    const std::wstring localizedNames = kParent + L"\\LocalizedNames", settings = kVendorKey + L"\\Settings";
    ASSERT_EQ(SetKeySecurity(kParent, L"O:SYD:P(A;;KA;;;WD)(A;CI;KR;;;BU)"), 0);
    ASSERT_EQ(SetKeySecurity(localizedNames, L"O:BAD:P(A;;KA;;;WD)"), 0);
    const std::wstring parent = KeyDaclText(HKEY_LOCAL_MACHINE, kParent);
    ASSERT_NE(KeyDaclText(HKEY_LOCAL_MACHINE, localizedNames), parent);
    EXPECT_EQ(session_.Run("AddNVCertStore"), 0u);
    EXPECT_EQ(KeyDaclText(HKEY_LOCAL_MACHINE, localizedNames), parent);
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTrustedStore));
    EXPECT_EQ(messages_.InfoTexts(), Lines{L"Registry rights was changed"});
    WriteRegistryDword(HKEY_LOCAL_MACHINE, settings + L"\\Users\\S-1-5-18", L"Seeded", 1);
    EXPECT_EQ(session_.Run("DelAllReg"), 0u);
    EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, settings));
}

// A seeded user keeps an older RunOnce entry and calls nothing; the others get it and ask for RNG.
TEST_F(RandomSeedingUserTest, SeededUsersAreLeftAloneOthersAreScheduledAndAskForTheHardwareGenerator) {
    TestProvider provider(L"Test GOST CSP", 80); // the default of the package's type
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTypeDefault, L"Name", L"Test GOST CSP");
    const std::wstring command = L"C:\\p\\rng.exe /user /q";
    const struct {
        std::optional<RegistryData> seed, flags;
        bool seeded;
    } cases[] = {
        {kSeed, RegistryDwordData(0x2), true},
        {std::nullopt, RegistryDwordData(0x2), false},
    };
    for (const auto& c : cases) {
        const std::wstring random = kProviderNode + L"\\Settings\\Users\\" + kUserSid + L"\\Random";
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, random, L"RootRandomSeed", c.seed);
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, random, L"RootRandomSeedFlags", c.flags);
        SetRunOnceEntry(kUserSid, L"Seed", L"older");
        EXPECT_EQ(session_.Run("InitializeHardRng", L"Seed/" + command), 0u);
        EXPECT_EQ(RunOnceEntry(kUserSid, L"Seed"), RegistryText(c.seeded ? L"older" : command)) << c.seeded;
        EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Title/Message"), 0u);
        EXPECT_EQ(provider.TakeCalls(), c.seeded ? L"" : kAskedForTheGenerator) << c.seeded;
    }
}

// A failed patch is freed, a successful one stays and is not applied again.
TEST_F(RandomSeedingTest, LegacyPatchKeepsOnlyASuccessfulPatch) {
    const std::wstring patch = TestProgramPath(L"test_patch.dll");
    SetPatch(L"advapi32.dll", 0);
    EXPECT_EQ(setuputils::ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(GetModuleHandleW(patch.c_str()), nullptr);
    SetPatch(L"advapi32.dll", 1);
    HMODULE patched = setuputils::ApplyLegacyAdvapiPatch();
    EXPECT_NE(patched, nullptr);
    EXPECT_EQ(GetModuleHandleW(patch.c_str()), patched);
    EXPECT_EQ(setuputils::ApplyLegacyAdvapiPatch(), nullptr);
    EXPECT_EQ(PatchCount(L"Calls"), 2u);
    FreeLibrary(patched);
}

// The warning's owner is the installer's dialog of the given title.
TEST_F(RandomSeedingUserTest, RefusedHardwareGeneratorShowsTheWarningOverTheInstallerDialog) {
    TestProvider provider(L"Test Refusing CSP", 80);
    WriteRegistryString(HKEY_LOCAL_MACHINE, kTypeDefault, L"Name", L"Test Refusing CSP");
    const StandInWindow installer = MakeStandInWindow(L"#32770", L"Test Setup");
    EXPECT_EQ(session_.Run("InitializeHardRngUser", L"Caption/Test Setup/Message"), 0u);
    constexpr UINT kStyle = MB_ICONWARNING | MB_SETFOREGROUND | MB_TOPMOST;
    EXPECT_EQ(boxes_.calls(), Lines{BoxCall(installer.get(), L"Message", L"Caption", kStyle)});
}

// Before Windows 8 the patch is attempted once per process (the only seeding run under Windows 7).
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
