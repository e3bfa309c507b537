// The feature and property actions against Wine's installer and products installed for the test.
#include <gtest/gtest.h>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <algorithm>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "action_session.h"
#include "frame/product_codes.h"
#include "import_redirect.h"
#include "library.h"
#include "machine.h"
#include "test_package.h"

namespace harness {
namespace {

UINT RunAction(const char* action, TestSession& session) {
    static const SetupUtilsLibrary library;
    return library.Action(action)(session.get());
}

// An empty property is filled in, a set one only when the rule overwrites; a condition must hold; a long
// formatted value is set whole.
TEST(FeaturesTest, PropertyExRulesSetClearOrKeepTheirProperties) {
    const std::wstring kLonger(300, L'x'); // formatted beyond the value column's 256 characters
    using Rule = std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                            const wchar_t*>; // property, value, flags, condition, before (null: unset), after
    const Rule rules[] = {{L"OVERWRITTEN", L"[OTHER]\\x", L"#1", L"", L"old", L"other\\x"},
                          {L"EMPTY", L"[OTHER]y", L"#0", L"", nullptr, L"othery"},
                          {L"KEPT", L"v", L"#0", L"", L"old", L"old"},
                          {L"CONDITIONED", L"v", L"#0", L"OTHER = \"other\"", nullptr, L"v"},
                          {L"LONG", L"[LONGER]", L"#0", L"", nullptr, kLonger.c_str()}};
    const std::wstring columns = L"`Property`, `Value`, `Flags`, `Condition`";
    TestPackage package;
    package.AddStandardTables();
    package.Sql(
        L"CREATE TABLE `PropertyEx` (`Property` CHAR(72) NOT NULL, `Value` CHAR(0), `Flags` SHORT NOT "
        L"NULL, `Condition` CHAR(255) PRIMARY KEY `Property`)");
    package.SetProperty(L"OTHER", L"other");
    package.SetProperty(L"LONGER", kLonger);
    for (const auto& [property, value, flags, condition, before, after] : rules) {
        package.Insert(L"PropertyEx", columns, {{property, value, flags, condition}});
        if (before != nullptr) {
            package.SetProperty(property, before);
        }
    }
    package.Commit();
    TestSession session(package);
    EXPECT_EQ(RunAction("ProcessPropertyEx", session), 0u);
    for (const auto& [property, value, flags, condition, before, after] : rules) {
        EXPECT_EQ(session.Property(property), after) << property;
    }
}

void AddFeatureRow(TestPackage& package, const std::wstring& feature, const std::wstring& parent,
                   const wchar_t* level = L"#1") {
    package.Insert(L"Feature", L"`Feature`, `Feature_Parent`, `Display`, `Level`, `Attributes`",
                   {{feature, parent, L"#1", level, L"#0"}});
}

// Each feature with its parent and Display, as the session's Feature table holds them.
std::set<std::wstring> FeatureRows(TestSession& session) {
    std::set<std::wstring> rows;
    for (const auto& row : session.Rows(L"SELECT `Feature`, `Feature_Parent`, `Display` FROM `Feature`")) {
        rows.insert(row[0] + L"<" + row[1] + L" " + row[2]);
    }
    return rows;
}

// "nvcspr" holds the probe component (key file "probe.exe" or its folder), "fake_nvcspr" holds "tool.exe",
// and the empty "nvconfig" and "nvcspr1" are left out by default.
struct ProviderPackage {
    explicit ProviderPackage(bool probeKeyFile) : folder(MakeTempFolder(L"app")) {
        const std::wstring source = package.path().substr(0, package.path().find_last_of(L'\\') + 1);
        package.AddStandardTables();
        package.AddDirectory(L"APPDIR", L"app:.");
        package.SetProperty(L"APPDIR", folder);
        if (probeKeyFile) {
            package.AddFileComponent(L"probe", L"APPDIR", L"probe.exe", L"nvcspr");
            WriteTextFile(source + L"probe.exe", "probe");
        } else {
            package.AddRegistryComponent(L"probe", true, L"nvcspr");
        }
        package.Sql(L"UPDATE `Component` SET `ComponentId` = ?, `Directory_` = 'APPDIR' WHERE `Component` = "
                    L"'probe'",
                    {setuputils::kNewFeaturesProbeComponent});
        package.AddFileComponent(L"tool", L"APPDIR", L"tool.exe", L"fake_nvcspr");
        WriteTextFile(source + L"tool.exe", "tool");
        AddFeatureRow(package, L"nvconfig", L"", L"#2");
        AddFeatureRow(package, L"nvcspr1", L"", L"#2");
    }

    TestPackage package;
    std::wstring folder;
};

// A costed session of an installed package, as a maintenance run opens it.
TestSession Maintenance(const ProviderPackage& product) {
    TestSession session(product.package.path());
    session.Cost();
    return session;
}

// Refuses the first temporary row asked for: the provider's feature, put back hidden.
UINT WINAPI RefuseFirstTemporaryInsert(MSIHANDLE view, MSIMODIFY mode, MSIHANDLE record) {
    static bool refused = false;
    return mode == MSIMODIFY_INSERT_TEMPORARY && !std::exchange(refused, true)
               ? ERROR_FUNCTION_FAILED
               : MsiViewModify(view, mode, record);
}

// The product (probe with a key file) and an earlier edition (probe folder) installed, and a first
// installation whose "nvcspr" has children (one kept when its provider's row is refused). Wine cannot
// show that the rows put back are temporary.
TEST(FeaturesTest, InstalledProductsDecideHidingSelectionAndAppPaths) {
    ProviderPackage own(true), earlier(false), fresh(true);
    const InstalledProduct ownProduct(own.package);
    earlier.package.SetProductCode(setuputils::kEarlierEditionProductCodes[1]);
    const InstalledProduct earlierProduct(earlier.package);
    AddFeatureRow(fresh.package, L"nvcspr_a", L"nvcspr");
    AddFeatureRow(fresh.package, L"nvcspr_b", L"nvcspr");
    fresh.package.Commit();
    {
        TestSession session = Maintenance(own);
        EXPECT_EQ(RunAction("HideNVCSPRIfInstalled", session), 0u);
        EXPECT_EQ(FeatureRows(session).count(L"nvcspr< 0"), 1u) << "hidden when installed";
        TestSession first(fresh.package);
        first.Cost();
        std::set<std::wstring> rows = FeatureRows(first);
        EXPECT_EQ(RunAction("HideNVCSPRIfKC", first), 0u);
        rows.erase(L"nvcspr< 1");
        rows.insert(L"nvcspr< 0");
        EXPECT_EQ(FeatureRows(first), rows) << "hidden, children kept";
    }
    {
        ProviderPackage refused(true);
        AddFeatureRow(refused.package, L"nvcspr_a", L"nvcspr");
        refused.package.Commit();
        const ImportRedirect refuse{GetModuleHandleW(L"setuputils.dll"), "msi.dll", "MsiViewModify",
                                    reinterpret_cast<void*>(&RefuseFirstTemporaryInsert)};
        TestSession session(refused.package);
        EXPECT_EQ(RunAction("HideNVCSPRIfKC", session), 0u);
        EXPECT_EQ(FeatureRows(session).count(L"nvcspr_a<nvcspr 1"), 1u)
            << "the child kept, the provider refused";
    }

    // "nvcspr1" only when "fake_nvcspr" stays installed and the product's own probe has a key file.
    const std::tuple<const ProviderPackage*, INSTALLSTATE, bool> cases[] = {
        {&own, INSTALLSTATE_LOCAL, true},
        {&own, INSTALLSTATE_ABSENT, false},
        {&earlier, INSTALLSTATE_LOCAL, false}};
    for (const auto& [installed, fake, selected] : cases) {
        TestSession session = Maintenance(*installed);
        ASSERT_EQ(MsiSetFeatureStateW(session.get(), L"fake_nvcspr", fake), 0u);
        EXPECT_EQ(RunAction("AddNewFeatures", session), 0u);
        INSTALLSTATE state = INSTALLSTATE_UNKNOWN, nvconfig = state, nvcspr1 = state;
        MsiGetFeatureStateW(session.get(), L"nvconfig", &state, &nvconfig);
        MsiGetFeatureStateW(session.get(), L"nvcspr1", &state, &nvcspr1);
        EXPECT_EQ(nvconfig, INSTALLSTATE_LOCAL);
        EXPECT_EQ(nvcspr1 == INSTALLSTATE_LOCAL, selected) << installed << fake;
    }

    // The first entry of each component's exact path goes, and the earlier edition's.
    const std::wstring appPaths = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\AppPath\\";
    std::wstring ownToolInCapitals = own.folder + L"tool.exe";
    std::transform(ownToolInCapitals.begin(), ownToolInCapitals.end(), ownToolInCapitals.begin(), towupper);
    const std::wstring paths[] = {own.folder + L"probe.exe", own.folder + L"probe.exe",
                                  earlier.folder + L"tool.exe", ownToolInCapitals,
                                  L"C:\\elsewhere\\tool.exe"};
    for (int i = 0; i < 5; ++i) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, appPaths + std::to_wstring(i + 1), L"", paths[i]);
    }
    auto left = [&] {
        std::wstring names;
        for (const wchar_t* name : {L"1", L"2", L"3", L"4", L"5"}) {
            names += RegistryKeyExists(HKEY_LOCAL_MACHINE, appPaths + name) ? name : L"";
        }
        return names;
    };
    ActionSession session;
    session.session().SetProperty(L"ProductCode", own.package.productCode());
    EXPECT_EQ(session.Run("RemoveAppPaths"), 0u);
    EXPECT_EQ(left(), L"245");
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane\\Cryptography");
}

} // namespace
} // namespace harness
