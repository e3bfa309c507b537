// The licence entries: an earlier edition's registration carried forward; the user's recorded.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "action_session.h"
#include "frame/product_codes.h"
#include "machine.h"
#include "test_package.h"

namespace harness {
namespace {

constexpr wchar_t kSettingsKey[] = L"SOFTWARE\\Norvane\\Settings";

// "PIDKEY|USERNAME|COMPANYNAME" of the session.
std::wstring Carried(ActionSession& session) {
    TestSession& s = session.session();
    return s.Property(L"PIDKEY") + L"|" + s.Property(L"USERNAME") + L"|" + s.Property(L"COMPANYNAME");
}

// An earlier edition's registration (the installer's RegisterUser) fills an empty PIDKEY, and
// USERNAME and COMPANYNAME only where empty; a PIDKEY of the user's own stops both entries.
TEST(LicenceEntries, EarlierEditionsRegistrationFillsWhatIsEmpty) {
    {
        ActionSession fresh;
        EXPECT_EQ(fresh.Run("GetOldRPProductID"), 0u);
        EXPECT_EQ(Carried(fresh), L"||");
        EXPECT_EQ(
            fresh.messages().InfoTexts(),
            std::vector<std::wstring>{L"GetOldRPProductID: no earlier edition with a product identifier."});
    }
    TestPackage package;
    package.AddStandardTables();
    package.SetProductCode(setuputils::kEarlierEditionProductCodes[2]);
    package.Insert(
        L"Property", L"`Property`, `Value`",
        {{L"ProductID", L"12345-OEM-[67]"}, {L"USERNAME", L"Old User"}, {L"COMPANYNAME", L"Old Co"}});
    package.Insert(L"InstallExecuteSequence", L"`Action`, `Sequence`", {{L"RegisterUser", L"#6000"}});
    package.AddRegistryComponent(L"Main", true);
    const InstalledProduct earlier(package);

    ActionSession session;
    session.session().SetProperty(L"COMPANYNAME", L"New Co");
    EXPECT_EQ(session.Run("GetOldWLProductID"), 0u);
    EXPECT_EQ(Carried(session), L"12345-OEM-[67]|Old User|New Co");
    session.session().SetProperty(L"PIDKEY", L"MINE");
    session.session().SetProperty(L"USERNAME", L"");
    EXPECT_EQ(session.Run("GetOldRPProductID"), 0u);
    EXPECT_EQ(Carried(session), L"MINE||New Co");
    EXPECT_EQ(session.messages().InfoTexts(),
              (std::vector<std::wstring>{L"GetOldWLProductID: product identifier carried from " +
                                             std::wstring(setuputils::kEarlierEditionProductCodes[2]) + L".",
                                         L"GetOldRPProductID: PIDKEY is set; nothing carried."}));
}

// Split at the first two bars; all fields empty removes the three values and nothing else.
TEST(LicenceEntries, RegisterUserRecordsAndRemovesTheRegistration) {
    WriteRegistryString(HKEY_LOCAL_MACHINE, kSettingsKey, L"Other", L"kept");
    ActionSession session;
    EXPECT_EQ(session.Run("NVRegisterUser", L"123-45|Co [1]|A|B"), 0u);
    for (const auto& [name, value] :
         {std::pair{L"ProductID", L"123-45"}, {L"CompanyName", L"Co [1]"}, {L"UserName", L"A|B"}}) {
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kSettingsKey, name),
                  std::optional<std::wstring>(value));
    }
    EXPECT_EQ(session.Run("NVRegisterUser", L"||"), 0u);
    for (const wchar_t* name : {L"ProductID", L"CompanyName", L"UserName"}) {
        EXPECT_FALSE(ReadRegistryString(HKEY_LOCAL_MACHINE, kSettingsKey, name).has_value()) << name;
    }
    EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, kSettingsKey, L"Other"),
              std::optional<std::wstring>(L"kept"));
    EXPECT_EQ(session.messages().InfoTexts(),
              (std::vector<std::wstring>{L"NVRegisterUser: registered A|B, Co [1].",
                                         L"NVRegisterUser: registration removed."}));
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kSettingsKey);
}

} // namespace
} // namespace harness
