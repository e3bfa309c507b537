// The provider-default and detection actions against Wine: CryptoAPI dispatch
// into the test provider DLL, real installed products, a stand-in service,
// stand-in installer windows and real message boxes (on Xvfb), read and
// closed by the watcher.
#include <gtest/gtest.h>

#include <windows.h>
#include <wincrypt.h>

#include <optional>
#include <string>
#include <vector>

#include "action_session.h"
#include "frame/handles.h"
#include "frame/product_codes.h"
#include "machine.h"
#include "message_box_watcher.h"
#include "test_provider.h"

namespace harness {
namespace {

using namespace std::chrono_literals;
using setuputils::ServiceHandle;

const std::wstring kProviders = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\";
const std::wstring kTypes = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\";
const std::wstring kStrong = L"Microsoft Strong Cryptographic Provider";
const std::wstring kOther = L"Test Other CSP";
const std::wstring kPackage = L"Test Package CSP";
const std::wstring kDefault = L"Test Default CSP";
constexpr DWORD kContextFlags = CRYPT_VERIFYCONTEXT | CRYPT_SILENT;
// No box may come: how long the watcher looks after the action returned.
constexpr auto kNoBox = 300ms;

std::wstring TypeKey(DWORD type) {
    wchar_t name[16];
    swprintf(name, 16, L"Type %03lu", type);
    return kTypes + name;
}

class ProviderDefaultsTest : public ::testing::Test {
protected:
    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};

// The old provider names and type 071 go, whole; their neighbours stay.
TEST_F(ProviderDefaultsTest, DelNVCSPsDeletesTheListedKeysAndNothingElse) {
    std::vector<std::wstring> listed = {kProviders + L"Norvane Cryptographic Service Provider",
                                        kProviders + L"Norvane SmartCard CSP", kTypes + L"Type 071"};
    for (const wchar_t* version : {L"94", L"2001"}) {
        for (const wchar_t* kind : {L"Cryptographic Service Provider", L"KC1 CSP", L"KC2 CSP"}) {
            listed.push_back(kProviders + L"Norvane GOST R 34.10-" + version + L" " + kind);
        }
    }
    const std::vector<std::wstring> kept = {kProviders + L"Norvane GOST R 34.10-2012 KC1 CSP",
                                            kProviders + L"Norvane SmartCard CSP 2", kTypes + L"Type 0710"};
    for (const std::wstring& key : listed) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, key + L"\\Sub", L"Name", L"x");
    }
    for (const std::wstring& key : kept) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, key, L"Probe", L"x");
    }
    EXPECT_EQ(session_.Run("DelNVCSPs"), 0u);
    for (const std::wstring& key : listed) {
        EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, key)) << key.c_str();
    }
    for (const std::wstring& key : kept) {
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, key, L"Probe"), L"x") << key.c_str();
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, key);
    }
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kProviders + kStrong));
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kTypes + L"Type 001"));
    EXPECT_EQ(session_.Run("DelNVCSPs"), 0u); // nothing left to delete
}

class ProviderDefaultsFixTest : public ProviderDefaultsTest {
protected:
    ProviderDefaultsFixTest() {
        for (DWORD type : kTypesUsed) {
            saved_.push_back(ReadRegistryValue(HKEY_LOCAL_MACHINE, TypeKey(type), L"Name"));
        }
    }
    ~ProviderDefaultsFixTest() override {
        for (size_t i = 0; i < saved_.size(); ++i) {
            RestoreRegistryValue(HKEY_LOCAL_MACHINE, TypeKey(kTypesUsed[i]), L"Name", saved_[i]);
        }
        DeleteRegistryTree(HKEY_CURRENT_USER, L"Software\\Microsoft\\Cryptography");
    }

    static void SetMachineDefault(DWORD type, const std::wstring& name) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, TypeKey(type), L"Name", name);
    }

    static constexpr DWORD kTypesUsed[] = {1, 75, 80};
    std::vector<std::optional<RegistryData>> saved_;
};

// Dispatched into the test provider: which defaults stay and which are
// replaced, and by what.
TEST_F(ProviderDefaultsFixTest, MachineDefaultIsKeptOrReplacedByTypeVersionAndWhetherItWorks) {
    const TestProviderBehaviour fails{.acquireResult = static_cast<DWORD>(NTE_KEYSET_ENTRY_BAD)};
    const TestProviderBehaviour works{};
    const TestProviderBehaviour current{.version = 0x300, .answersParam129 = true, .answersParam138 = true};
    const struct {
        const char* what;
        DWORD type;
        TestProviderBehaviour defaultProvider, packageProvider, otherProvider;
        std::wstring expected;
    } cases[] = {
        {"GOST default of version 2", 75, works, works, fails, kPackage},
        {"current GOST default", 75, current, works, fails, kDefault},
        {"version 3 without parameter 138",
         75,
         {.version = 0x3FF, .answersParam129 = true},
         works,
         fails,
         kPackage},
        {"GOST default of version 2, package provider broken", 75, works, fails, works, kDefault},
        {"RSA default of version 2", 1, works, works, fails, kDefault},
        {"broken RSA default", 1, fails, works, fails, kPackage},
        {"broken RSA default, package provider broken", 1, fails, fails, works, kStrong},
        {"broken GOST default, package provider broken", 75, fails, fails, works, kOther},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        TestProvider defaultProvider(kDefault, c.type, c.defaultProvider);
        TestProvider packageProvider(kPackage, c.type, c.packageProvider);
        // Enumerated after a broken one of the type and before another that works.
        TestProvider broken(L"Test Broken CSP", c.type, fails);
        TestProvider other(kOther, c.type, c.otherProvider);
        TestProvider later(L"Test Zulu CSP", c.type, works);
        SetMachineDefault(c.type, kDefault);
        EXPECT_EQ(session_.Run("FixDefaultProvider", std::to_wstring(c.type) + L":" + kPackage), 0u);
        EXPECT_EQ(MachineDefaultProvider(c.type), c.expected);
        const std::vector<TestProviderCall> calls = defaultProvider.Calls();
        ASSERT_FALSE(calls.empty());
        EXPECT_EQ(calls[0], (TestProviderCall{L"CPAcquireContext", 0, kContextFlags}));
    }
    EXPECT_TRUE(messages_.all().empty());
}

// The default that works is asked for its version and both parameters, and
// released; the list goes on after an entry without a machine default.
TEST_F(ProviderDefaultsFixTest, EachEntryIsRepairedAndAMissingDefaultIsLeftMissing) {
    TestProvider gost(kDefault, 75, {.version = 0x200, .answersParam129 = true, .answersParam138 = true});
    TestProvider package(kPackage, 75);
    TestProvider package80(L"Test Package 80 CSP", 80);
    SetMachineDefault(75, kDefault);
    RestoreRegistryValue(HKEY_LOCAL_MACHINE, TypeKey(80), L"Name", std::nullopt);
    EXPECT_EQ(session_.Run("FixDefaultProvider", L"80:Test Package 80 CSP/75:" + kPackage), 0u);
    EXPECT_EQ(MachineDefaultProvider(80), std::nullopt);
    EXPECT_EQ(MachineDefaultProvider(75), kPackage);
    const std::vector<TestProviderCall> asked = {{L"CPAcquireContext", 0, kContextFlags},
                                                 {L"CPGetProvParam", PP_VERSION, 0},
                                                 {L"CPGetProvParam", 129, 0},
                                                 {L"CPGetProvParam", 138, 0},
                                                 {L"CPReleaseContext", 0, 0}};
    EXPECT_EQ(gost.Calls(), asked);
    EXPECT_TRUE(package80.Calls().empty());
}

// Wine finds a user default only where it wrongly looks for one: under
// HKCU's "Provider Type 075" and a copy of the provider's key. Both are made
// here for the test; the action makes neither.
TEST_F(ProviderDefaultsFixTest, UserDefaultIsRemovedAndListsWithoutAColonChangeNothing) {
    TestProvider gost(kDefault, 75);
    TestProvider package(kPackage, 75);
    SetMachineDefault(75, kDefault);
    const std::wstring userKeys = L"Software\\Microsoft\\Cryptography\\";
    WriteRegistryString(HKEY_CURRENT_USER, userKeys + L"Provider Type 075", L"Probe", L"");
    WriteRegistryString(HKEY_CURRENT_USER, userKeys + L"Defaults\\Provider\\" + kDefault, L"Probe", L"");
    ASSERT_TRUE(CryptSetProviderExW(kDefault.c_str(), 75, nullptr, CRYPT_USER_DEFAULT));
    ASSERT_EQ(UserDefaultProvider(75), kDefault);

    for (const wchar_t* list : {L"", L"75 Test Package CSP", L"/"}) {
        EXPECT_EQ(session_.Run("FixDefaultProvider", list), 0u);
        EXPECT_EQ(UserDefaultProvider(75), kDefault) << list;
        EXPECT_EQ(MachineDefaultProvider(75), kDefault) << list;
    }
    EXPECT_TRUE(gost.Calls().empty());
    EXPECT_EQ(session_.Run("FixDefaultProvider", L"75:" + kPackage), 0u);
    EXPECT_EQ(UserDefaultProvider(75), std::nullopt);
    EXPECT_EQ(MachineDefaultProvider(75), kPackage);
}

// Wine's own libraries load, except one the test disables. The library
// imports setupapi, secur32 and crypt32 itself, so only winscard, the first
// one checked, can be made to fail here; its failure always leaves an error,
// so the 4301 stand-in for a missing one cannot be shown.
TEST_F(ProviderDefaultsTest, CheckDllSetsTheResultOnlyWhenAllLoadAndReportsTheFirstThatFails) {
    EXPECT_EQ(session_.Run("CheckDll"), 0u);
    EXPECT_EQ(session_.session().Property(L"CHECKDLLRESULT64"), L"1");
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());

    session_.session().SetProperty(L"CHECKDLLRESULT64", L"");
    const std::wstring overrides = L"Software\\Wine\\DllOverrides";
    WriteRegistryString(HKEY_CURRENT_USER, overrides, L"winscard", L"");
    EXPECT_EQ(session_.Run("CheckDll"), 0u);
    RestoreRegistryValue(HKEY_CURRENT_USER, overrides, L"winscard", std::nullopt);
    EXPECT_EQ(session_.session().Property(L"CHECKDLLRESULT64"), L"");
    const std::vector<std::vector<std::wstring>> errors = {
        {L"6666", L"winscard.dll", std::to_wstring(ERROR_MOD_NOT_FOUND)}};
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), errors);
}

// Each service name counts, "itcspe" here, and so does an installed package
// of the vendor's, found by its upgrade code.
TEST_F(ProviderDefaultsTest, CheckVipNetFindsTheServiceOrAnInstalledPackage) {
    auto found = [&] {
        session_.session().SetProperty(L"VIPNETFOUND", L"");
        EXPECT_EQ(session_.Run("CheckVipNet"), 0u);
        return session_.session().Property(L"VIPNETFOUND");
    };
    EXPECT_EQ(found(), L"");
    {
        ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        const std::wstring binary = L"\"" + TestProgramPath(L"test_service.exe") + L"\" itcspe";
        ServiceHandle service(CreateServiceW(manager.get(), L"itcspe", L"itcspe", SERVICE_ALL_ACCESS,
                                             SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START,
                                             SERVICE_ERROR_NORMAL, binary.c_str(), nullptr, nullptr, nullptr,
                                             nullptr, nullptr));
        ASSERT_TRUE(service);
        EXPECT_EQ(found(), L"1");
        DeleteService(service.get());
    }
    EXPECT_EQ(found(), L"");
    EXPECT_TRUE(messages_.all().empty());
    InstalledProduct vipNet(NewGuid(), setuputils::kVipNetUpgradeCodes[2], L"ViPNet CSP stand-in");
    EXPECT_EQ(found(), L"1");
}

// The warning box shows the package's text and the names of the installed
// products of the list, except the package's own, over the own product's
// dialog; never when nothing else is installed or the UI is silent.
TEST_F(ProviderDefaultsTest, AnotherCSPDetectedListsTheOtherInstalledProductsOverTheInstallerDialog) {
    const auto& codes = setuputils::kConflictingProductCodes;
    TestSession& session = session_.session();
    session.SetProperty(L"ProductCode", codes[2]);
    session.SetProperty(L"AnotherCSPDetected", L"Other providers are installed:");
    session.SetProperty(L"WarningTitle", L"Warning");
    session.SetProperty(L"UILevel", L"5");
    auto run = [&](bool shows) {
        MessageBoxWatcher watcher;
        EXPECT_EQ(session_.Run("AnotherCSPDetected"), 0u);
        const std::optional<MessageBoxSeen> box = watcher.Wait(shows ? 10s : kNoBox);
        EXPECT_EQ(box.has_value(), shows);
        return box.value_or(MessageBoxSeen{});
    };

    InstalledProduct own(codes[2], NewGuid(), L"Own CSP", L"5.0.1");
    run(false); // only the package's own product is installed

    InstalledProduct first(codes[0], NewGuid(), L"First GOST CSP");
    InstalledProduct last(codes[12], NewGuid(), L"Last GOST CSP");
    StandInWindows dialogs(L"#32770");
    const HWND withVersion = dialogs.Add(L"Own CSP 5.0.1");
    dialogs.Add(L"Unrelated dialog"); // on top: what a search for any dialog finds
    messages_.Clear();
    session.SetProperty(L"UILevel", L"2");
    run(false);
    session.SetProperty(L"UILevel", L"5");
    const MessageBoxSeen box = run(true);
    EXPECT_EQ(box.text, L"Other providers are installed:\nFirst GOST CSP\nLast GOST CSP\n");
    EXPECT_EQ(box.caption, L"Warning");
    EXPECT_EQ(box.owner, withVersion);
    EXPECT_EQ(box.flags, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
    // The title without the version is looked for first.
    const HWND plain = dialogs.Add(L"Own CSP");
    EXPECT_EQ(run(true).owner, plain);
    EXPECT_TRUE(messages_.all().empty());
}

// Wine 8 neither puts such a box on top nor leaves it out of the foreground
// whatever the style, so the style is read from the call itself. The titles
// of other languages are the native tests'.
TEST_F(ProviderDefaultsTest, StrengthenedKeyWarningIsOwnedByTheInstallerWindowOfTheProduct) {
    const struct {
        const char* what;
        const wchar_t* language;
        std::vector<std::wstring> windows; // the owner expected first; none: no owner
    } cases[] = {
        {"full title", L"1033", {L"setuputils test1.0.0 Setup", L"setuputils test Setup", L"Other"}},
        {"title without version",
         L"1033",
         {L"setuputils test Setup", L"Other", L"setuputils test1.0.0 Setup!"}},
        {"any installer window", L"1033", {L"Another product Setup"}},
        {"no installer window", L"1033", {}},
    };
    TestSession& session = session_.session();
    session.SetProperty(L"StrengthenedKeyWarningText", L"Keys will be strengthened.");
    session.SetProperty(L"WarningTitle", L"Warning");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        session.SetProperty(L"ProductLanguage", c.language);
        StandInWindows installer(L"MsiDialogCloseClass");
        std::vector<HWND> windows;
        for (const std::wstring& title : c.windows) {
            windows.push_back(installer.Add(title));
        }
        const HWND owner = windows.empty() ? nullptr : windows[0];
        MessageBoxCallRecorder calls(GetModuleHandleW(L"setuputils.dll"));
        MessageBoxWatcher watcher;
        EXPECT_EQ(session_.Run("StrengthenedKeyWarning"), 0u);
        const std::optional<MessageBoxSeen> box = watcher.Wait();
        ASSERT_TRUE(box);
        EXPECT_EQ(box->text, L"Keys will be strengthened.");
        EXPECT_EQ(box->caption, L"Warning");
        EXPECT_EQ(box->owner, owner);
        EXPECT_EQ(box->flags, static_cast<UINT>(MB_OK | MB_ICONEXCLAMATION));
        ASSERT_EQ(calls.calls().size(), 1u);
        EXPECT_EQ(calls.calls()[0].style, 0x50030u);
        EXPECT_EQ(calls.calls()[0].owner, owner);
    }
}

// The slot entry of the 32-bit view, seen through its "WOW6432Node" path.
// "Reader" is written without its terminator, which the registry adds back
// (as Windows does for a string whose next character is one).
TEST_F(ProviderDefaultsTest, RegCreateSlot0EntryWritesTheSlotOnceAndNeverTouchesItAgain) {
    const std::wstring types32 =
        L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography\\Defaults\\Provider Types\\";
    const std::wstring slot = L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion\\PKCS11\\slot0";
    const RegistryData placeholder{REG_SZ, {0}};
    auto values = [&] {
        std::vector<std::optional<RegistryData>> read;
        for (const wchar_t* name : {L"Reader", L"ProvRSA", L"provGOST"}) {
            read.push_back(ReadRegistryValue(HKEY_LOCAL_MACHINE, slot, name));
        }
        return read;
    };
    // No GOST type in the 32-bit view: its placeholder stays.
    WriteRegistryString(HKEY_LOCAL_MACHINE, types32 + L"Type 001", L"Image Path", L"rsa.dll");
    WriteRegistryString(HKEY_LOCAL_MACHINE, types32 + L"Type 001", L"Name", L"RSA 32");
    EXPECT_EQ(session_.Run("RegCreateSlot0Entry"), 0u);
    const std::vector<std::optional<RegistryData>> first = {RegistryText(L"REGISTRY"),
                                                            RegistryText(L"RSA 32"), placeholder};
    EXPECT_EQ(values(), first);

    WriteRegistryString(HKEY_LOCAL_MACHINE, types32 + L"Type 075", L"Name", L"GOST 32");
    EXPECT_EQ(session_.Run("RegCreateSlot0Entry"), 0u);
    EXPECT_EQ(values(), first);

    DeleteRegistryTree(HKEY_LOCAL_MACHINE, slot);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, types32 + L"Type 001");
    EXPECT_EQ(session_.Run("RegCreateSlot0Entry"), 0u);
    const std::vector<std::optional<RegistryData>> second = {RegistryText(L"REGISTRY"), placeholder,
                                                             RegistryText(L"GOST 32")};
    EXPECT_EQ(values(), second);
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\WOW6432Node\\Norvane");
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, types32 + L"Type 075");
    EXPECT_TRUE(messages_.all().empty());
}

// The stand-in self-test records that it finished, half a second after it started.
TEST_F(ProviderDefaultsTest, SetupCSPTestWaitsForTheProgramWhateverItsExitCode) {
    const std::wstring records = L"Software\\SetupUtilsTests\\SelfTest";
    for (const wchar_t* code : {L"0", L"7"}) {
        messages_.Clear();
        DeleteRegistryTree(HKEY_CURRENT_USER, records);
        const std::wstring line = L"\"" + TestProgramPath(L"test_self_test.exe") + L"\" " + code;
        EXPECT_EQ(session_.Run("SetupCSPTest", line), 0u);
        EXPECT_EQ(ReadRegistryString(HKEY_CURRENT_USER, records, L"Finished"), line);
        const std::vector<std::wstring> log = {line, L"CreateProcess()...", L"WaitForSingleObject()..."};
        EXPECT_EQ(messages_.InfoTexts(), log);
        EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    }
    DeleteRegistryTree(HKEY_CURRENT_USER, records);
}

TEST_F(ProviderDefaultsTest, SetupCSPTestFailsWhenTheProgramCannotStartOrTheLineIsTooLong) {
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\"";
    EXPECT_EQ(session_.Run("SetupCSPTest", absent), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    const auto info = messages_.OfType(INSTALLMESSAGE_INFO);
    ASSERT_EQ(info.size(), 3u);
    EXPECT_TRUE(info[2].fields[0].ends_with(L"CreateProcess() failed: [1]")) << info[2].fields[0];
    EXPECT_EQ(info[2].fields[1], std::to_wstring(ERROR_FILE_NOT_FOUND));
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), (std::vector<std::vector<std::wstring>>{{L"25030"}}));

    // 259 characters fit the buffer; 260 do not.
    messages_.Clear();
    const std::wstring program = L"\"" + TestProgramPath(L"test_self_test.exe") + L"\" 0 0 ";
    EXPECT_EQ(session_.Run("SetupCSPTest", program + std::wstring(259 - program.size(), L'x')), 0u);
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(session_.Run("SetupCSPTest", program + std::wstring(260 - program.size(), L'x')),
              static_cast<UINT>(ERROR_INSTALL_FAILURE));
    const std::vector<std::vector<std::wstring>> errors = {
        {L"666", L"SetupCSPTest", L"MsiGetProperty", std::to_wstring(ERROR_MORE_DATA)}};
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR), errors);
    DeleteRegistryTree(HKEY_CURRENT_USER, L"Software\\SetupUtilsTests\\SelfTest");
}

} // namespace
} // namespace harness
