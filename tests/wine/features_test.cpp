// The feature and property actions against Wine's installer: PropertyEx rules
// in a real session, "nvcspr" hidden in the session's Feature table, and
// feature selection and AppPath clean-up against products really installed in
// the test prefix.
#include <gtest/gtest.h>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <tuple>

#include "action_session.h"
#include "frame/product_codes.h"
#include "library.h"
#include "machine.h"
#include "msi_text.h"
#include "test_package.h"

namespace harness {
namespace {

const std::wstring kAppPaths = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\AppPath";

class FeaturesTest : public ::testing::Test {
protected:
    UINT Run(const char* action, TestSession& session) { return library_.Action(action)(session.get()); }

    SetupUtilsLibrary library_;
};

void AddFeatureRow(TestPackage& package, const std::wstring& feature, const std::wstring& parent,
                   int level = 1) {
    package.Sql(L"INSERT INTO `Feature` (`Feature`, `Feature_Parent`, `Display`, `Level`, `Attributes`) "
                L"VALUES (?, ?, 1, " +
                    std::to_wstring(level) + L", 0)",
                {feature, parent});
}

using FeatureRow = std::tuple<std::wstring, std::wstring, int>; // name, parent, display

std::set<FeatureRow> FeatureRows(MSIHANDLE database) {
    MsiHandle view;
    MsiDatabaseOpenViewW(database, L"SELECT `Feature`, `Feature_Parent`, `Display` FROM `Feature`",
                         view.put());
    MsiViewExecute(view.get(), 0);
    std::set<FeatureRow> rows;
    for (MsiHandle record; MsiViewFetch(view.get(), record.put()) == ERROR_SUCCESS;) {
        auto text = [&](UINT field) {
            return ReadMsiText([&](wchar_t* value, DWORD* size) {
                return MsiRecordGetStringW(record.get(), field, value, size);
            });
        };
        rows.emplace(text(1), text(2), MsiRecordGetInteger(record.get(), 3));
    }
    return rows;
}

std::set<FeatureRow> SessionFeatureRows(TestSession& session) {
    MsiHandle database(MsiGetActiveDatabase(session.get()));
    return FeatureRows(database.get());
}

TEST_F(FeaturesTest, PropertyExRulesSetClearOrKeepTheirProperties) {
    const struct {
        const wchar_t* property;
        const wchar_t* value;
        int flags;
        const wchar_t* condition;
        const wchar_t* before; // null: unset
        const wchar_t* after;
    } rules[] = {
        {L"ZERO", L"v", 0, L"", L"0", L""}, // "0" counts as unset: cleared, not given the value
        {L"ZERO_OVERWRITTEN", L"v", 1, L"", L"0", L"v"},
        {L"OVERWRITTEN", L"[OTHER]\\x", 1, L"", L"old", L"other\\x"},
        {L"EMPTY", L"[OTHER]y", 0, L"", nullptr, L"othery"},
        {L"KEPT", L"v", 0, L"", L"old", L"old"},
        {L"KEPT_ZEROS", L"v", 0, L"", L"00", L"00"},
        {L"SKIPPED", L"v", 1, L"OTHER = \"none\"", L"old", L"old"},
        {L"CONDITIONED", L"v", 0, L"OTHER = \"other\"", nullptr, L"v"},
    };
    TestPackage package;
    package.AddStandardTables();
    package.Sql(
        L"CREATE TABLE `PropertyEx` (`Property` CHAR(72) NOT NULL, `Value` CHAR(0), `Flags` SHORT NOT "
        L"NULL, `Condition` CHAR(255) PRIMARY KEY `Property`)");
    package.SetProperty(L"OTHER", L"other");
    for (const auto& rule : rules) {
        package.Sql(L"INSERT INTO `PropertyEx` (`Property`, `Value`, `Flags`, `Condition`) VALUES (?, ?, " +
                        std::to_wstring(rule.flags) + L", ?)",
                    {rule.property, rule.value, rule.condition});
        if (rule.before != nullptr) {
            package.SetProperty(rule.property, rule.before);
        }
    }
    package.Commit();
    TestSession session(package);
    EXPECT_EQ(Run("ProcessPropertyEx", session), 0u);
    for (const auto& rule : rules) {
        EXPECT_EQ(session.Property(rule.property), rule.after) << rule.property;
    }

    // A condition the installer cannot parse fails the action.
    package.Sql(
        L"INSERT INTO `PropertyEx` (`Property`, `Value`, `Flags`, `Condition`) VALUES ('BAD', 'v', 0, "
        L"'OTHER ==')");
    EXPECT_EQ(Run("ProcessPropertyEx", session), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    // So does a package without the table.
    ActionSession plain;
    EXPECT_EQ(plain.Run("ProcessPropertyEx"), static_cast<UINT>(ERROR_INSTALL_FAILURE));
}

// Wine cannot show that the rows put back are temporary ones: committing a
// table that holds a temporary row writes none of that table's rows, so the
// committed file cannot tell them apart.
TEST_F(FeaturesTest, HidingPutsNvcsprBackHiddenAndKeepsItsChildren) {
    for (const bool withChildren : {true, false}) {
        SCOPED_TRACE(withChildren ? "with children" : "without children");
        TestPackage package;
        package.AddStandardTables();
        AddFeatureRow(package, L"nvcspr", L"");
        AddFeatureRow(package, L"other", L"");
        if (withChildren) {
            AddFeatureRow(package, L"nvcspr_a", L"nvcspr");
            AddFeatureRow(package, L"nvcspr_b", L"nvcspr");
        }
        package.Commit();
        TestSession session(package);
        session.Cost();
        const std::set<FeatureRow> before = SessionFeatureRows(session);
        // Not installed: nothing changes.
        EXPECT_EQ(Run("HideNVCSPRIfInstalled", session), 0u);
        EXPECT_EQ(SessionFeatureRows(session), before);

        EXPECT_EQ(Run("HideNVCSPRIfKC", session), 0u);
        std::set<FeatureRow> hidden = before;
        hidden.erase({L"nvcspr", L"", 1});
        hidden.insert({L"nvcspr", L"", 0});
        EXPECT_EQ(SessionFeatureRows(session), hidden);
    }
}

// A package with the provider's features: "nvcspr" holds the probe component
// (kNewFeaturesProbeComponent) with "probe.exe" as its key file or with its
// folder as key path, "fake_nvcspr" holds "tool.exe", and the empty
// "nvconfig" and "nvcspr1" are left out by default.
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
        AddFeatureRow(package, L"nvconfig", L"", 2);
        AddFeatureRow(package, L"nvcspr1", L"", 2);
    }

    TestPackage package;
    std::wstring folder;
};

// Two products installed for the suite: the package's own, whose probe
// component has a key file, and an earlier edition, whose probe component has
// its folder as key path.
class FeaturesInstalledTest : public FeaturesTest {
protected:
    static void SetUpTestSuite() {
        own_ = std::make_unique<ProviderPackage>(true);
        ownProduct_ = std::make_unique<InstalledProduct>(own_->package);
        earlier_ = std::make_unique<ProviderPackage>(false);
        earlier_->package.SetProductCode(setuputils::kEarlierEditionProductCodes[1]);
        earlierProduct_ = std::make_unique<InstalledProduct>(earlier_->package);
    }
    static void TearDownTestSuite() {
        earlierProduct_.reset();
        ownProduct_.reset();
    }

    // A costed session of an installed package, as a maintenance run opens it.
    static TestSession Maintenance(const ProviderPackage& product) {
        TestSession session(product.package.path());
        session.Cost();
        return session;
    }
    static INSTALLSTATE Action(TestSession& session, const wchar_t* feature) {
        INSTALLSTATE installed = INSTALLSTATE_UNKNOWN;
        INSTALLSTATE action = INSTALLSTATE_UNKNOWN;
        MsiGetFeatureStateW(session.get(), feature, &installed, &action);
        return action;
    }

    inline static std::unique_ptr<ProviderPackage> own_;
    inline static std::unique_ptr<ProviderPackage> earlier_;
    inline static std::unique_ptr<InstalledProduct> ownProduct_;
    inline static std::unique_ptr<InstalledProduct> earlierProduct_;
};

TEST_F(FeaturesInstalledTest, HideNVCSPRIfInstalledHidesTheInstalledProviderFeature) {
    TestSession session = Maintenance(*own_);
    EXPECT_EQ(Run("HideNVCSPRIfInstalled", session), 0u);
    EXPECT_EQ(SessionFeatureRows(session).count({L"nvcspr", L"", 0}), 1u);
}

TEST_F(FeaturesInstalledTest, AddNewFeaturesSelectsNvcspr1OnlyOverAnInstalledProbeFile) {
    // A first installation: "nvconfig" is selected; "fake_nvcspr" is chosen
    // but not installed, so "nvcspr1" is not, though the product named by
    // ProductCode has the probe file.
    ProviderPackage fresh(true);
    fresh.package.Commit();
    TestSession first(fresh.package);
    first.Cost();
    first.SetProperty(L"ProductCode", own_->package.productCode());
    EXPECT_EQ(Run("AddNewFeatures", first), 0u);
    EXPECT_EQ(Action(first, L"nvconfig"), INSTALLSTATE_LOCAL);
    EXPECT_NE(Action(first, L"nvcspr1"), INSTALLSTATE_LOCAL);

    // "fake_nvcspr" installed and staying: selected; being removed: not.
    TestSession own = Maintenance(*own_);
    ASSERT_EQ(MsiSetFeatureStateW(own.get(), L"fake_nvcspr", INSTALLSTATE_LOCAL), 0u);
    EXPECT_EQ(Run("AddNewFeatures", own), 0u);
    EXPECT_EQ(Action(own, L"nvconfig"), INSTALLSTATE_LOCAL);
    EXPECT_EQ(Action(own, L"nvcspr1"), INSTALLSTATE_LOCAL);
    ASSERT_EQ(MsiSetFeatureStateW(own.get(), L"nvcspr1", INSTALLSTATE_ABSENT), 0u);
    ASSERT_EQ(MsiSetFeatureStateW(own.get(), L"fake_nvcspr", INSTALLSTATE_ABSENT), 0u);
    EXPECT_EQ(Run("AddNewFeatures", own), 0u);
    EXPECT_EQ(Action(own, L"nvcspr1"), INSTALLSTATE_ABSENT);

    // The probe component's key path is a folder: not selected.
    TestSession earlier = Maintenance(*earlier_);
    ASSERT_EQ(MsiSetFeatureStateW(earlier.get(), L"fake_nvcspr", INSTALLSTATE_LOCAL), 0u);
    EXPECT_EQ(Run("AddNewFeatures", earlier), 0u);
    EXPECT_NE(Action(earlier, L"nvcspr1"), INSTALLSTATE_LOCAL);
}

TEST_F(FeaturesInstalledTest, RemoveAppPathsDeletesTheFirstEntryOfAComponentOfTheProductOrAnEarlierEdition) {
    std::wstring ownToolInCapitals = own_->folder + L"tool.exe";
    std::transform(ownToolInCapitals.begin(), ownToolInCapitals.end(), ownToolInCapitals.begin(), towupper);
    const std::pair<std::wstring, std::wstring> entries[] = {{L"1", own_->folder + L"probe.exe"},
                                                             {L"2", own_->folder + L"probe.exe"},
                                                             {L"3", earlier_->folder + L"tool.exe"},
                                                             {L"4", ownToolInCapitals},
                                                             {L"5", L"C:\\elsewhere\\tool.exe"}};
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kAppPaths);
    for (const auto& [name, path] : entries) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kAppPaths + L"\\" + name, L"", path);
    }
    auto left = [&] {
        std::set<std::wstring> names;
        for (const auto& [name, path] : entries) {
            if (RegistryKeyExists(HKEY_LOCAL_MACHINE, kAppPaths + L"\\" + name)) {
                names.insert(name);
            }
        }
        return names;
    };
    // A session of an unrelated product: only the earlier edition counts.
    ActionSession session;
    EXPECT_EQ(session.Run("RemoveAppPaths"), 0u);
    EXPECT_EQ(left(), (std::set<std::wstring>{L"1", L"2", L"4", L"5"}));
    // The product's own session: the first entry of its probe file goes.
    session.session().SetProperty(L"ProductCode", own_->package.productCode());
    EXPECT_EQ(session.Run("RemoveAppPaths"), 0u);
    EXPECT_EQ(left(), (std::set<std::wstring>{L"2", L"4", L"5"}));
    DeleteRegistryTree(HKEY_LOCAL_MACHINE, kAppPaths);
}

} // namespace
} // namespace harness
