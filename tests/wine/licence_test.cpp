// The licence entries: an earlier edition's registration carried forward; the user's recorded.
#include <gtest/gtest.h>

#include <string>

#include "action_session.h"
#include "frame/product_codes.h"
#include "test_package.h"

namespace harness {
namespace {

// "PIDKEY|USERNAME|COMPANYNAME" of the session.
std::wstring Carried(ActionSession& session) {
    TestSession& s = session.session();
    return s.Property(L"PIDKEY") + L"|" + s.Property(L"USERNAME") + L"|" + s.Property(L"COMPANYNAME");
}

// An earlier edition's registration (the installer's RegisterUser) fills an empty PIDKEY, and
// USERNAME and COMPANYNAME only where empty; a PIDKEY of the user's own stops both entries.
TEST(LicenceEntries, EarlierEditionsRegistrationFillsWhatIsEmpty) {
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
}

} // namespace
} // namespace harness
