// ProcessRegReaders and its card type registration in costed sessions; UninstallSmartCard.
#include <gtest/gtest.h>

#include <array>
#include <set>

#include "action_session.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

using Row = std::vector<std::wstring>;
using Rows = std::set<Row>;
using Values = std::vector<std::pair<std::wstring, RegistryData>>;

const std::wstring kProvider = L"Norvane CSP";
const std::wstring kCalais = L"SOFTWARE\\Microsoft\\Cryptography\\Calais";
const std::wstring kCalais32 = L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography\\Calais";
const std::wstring kCards = kCalais + L"\\SmartCards\\";

RegistryData Binary(std::vector<BYTE> bytes) {
    return {REG_BINARY, std::move(bytes)};
}

void WriteValues(const std::wstring& key, const Values& values) {
    for (const auto& [name, data] : values) {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, key, name, data);
    }
}

// The Registry rows of one card in both views: identifier, key, name, value and component.
Rows CardRows(const std::wstring& card, const std::wstring& atr, const std::wstring& mask) {
    Rows rows;
    for (const std::wstring view : {L"", L"_64_"}) {
        for (const auto& [name, value] :
             {std::pair{L"ATR", atr}, {L"ATRMask", mask}, {L"Crypto Provider", kProvider}}) {
            rows.insert(Row{view + kCards + card + L"\\" + name, L"2", kCards + card, name, value,
                            view.empty() ? L"nvcsp" : L"nvcsp64"});
        }
    }
    return rows;
}

// Only the two keys: Wine keeps link keys below Calais that cannot be deleted with the tree.
void ClearCardTypes() {
    for (const std::wstring& calais : {kCalais, kCalais32}) {
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards");
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, calais + L"\\SmartCardsBackup");
    }
}

class SmartCardTypes : public ::testing::Test {
protected:
    SmartCardTypes() { ClearCardTypes(); }
    ~SmartCardTypes() override { ClearCardTypes(); }

    // ProcessRegReaders in a new costed session (no earlier session's rows), `property` = `value`.
    UINT Run(const std::wstring& package, const std::wstring& property, const std::wstring& value) {
        session_ = std::make_unique<TestSession>(package);
        session_->SetProperty(property, value);
        session_->Cost();
        messages_.Clear();
        return library_.Action("ProcessRegReaders")(session_->get());
    }

    // The rows of `table` other than the package's own.
    Rows Added(const std::wstring& table, const std::wstring& fields) {
        const auto rows = session_->Rows(L"SELECT `" + table + L"`, `Root`, `Key`, `Name`, " + fields +
                                         L" FROM `" + table + L"` WHERE `" + table + L"` <> 'Package'");
        return {rows.begin(), rows.end()};
    }
    Rows RegistryRows() { return Added(L"Registry", L"`Value`, `Component_`"); }
    Rows RemovalRows() { return Added(L"RemoveRegistry", L"`Component_`"); }

    SetupUtilsLibrary library_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

// Other vendors' card types; the 64-bit one's mask leaves out the low half of its second byte.
const Values kOther32 = {{L"ATR", Binary({0x3B, 0x01})},
                         {L"ATRMask", Binary({0xFF, 0xFF})},
                         {L"Flags", {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}}}};
const Values kOther64 = {{L"ATR", Binary({0x3B, 0x02})},
                         {L"ATRMask", Binary({0xFF, 0xF0})},
                         {L"Crypto Provider", RegistryText(L"#Other")}};

// Cards whose "CalaisRegistered" row holds get Registry rows in both views; rows left out are no rows.
TEST_F(SmartCardTypes, ProcessRegReadersRegistersCardsOverwritingOnlyWhenAsked) {
    TestPackage package;
    package.AddStandardTables();
    package.AddRegReadersTable();
    package.AddDirectory(L"READERDIR", L"readers:.");
    package.SetProperty(L"READERDIR", MakeTempFolder(L"rdr"));
    package.AddFileComponent(L"On", L"READERDIR", L"on.dll");
    package.AddFileComponent(L"Off", L"READERDIR", L"off.dll", L"Disabled", 0);
    package.AddRegistryComponent(L"nvcsp", false);
    package.AddRegistryComponent(L"nvcsp64", true);
    package.SetProperty(L"DefaultCSP80Name", kProvider);
    package.Sql(L"CREATE TABLE `RemoveRegistry` (`RemoveRegistry` CHAR(72) NOT NULL, `Root` SHORT, "
                L"`Key` CHAR(255) LOCALIZABLE, `Name` CHAR(255), `Component_` CHAR(72) "
                L"PRIMARY KEY `RemoveRegistry`)");
    // The writers make their rows from a row the table holds already.
    for (const wchar_t* table : {L"Registry", L"RemoveRegistry"}) {
        package.Insert(table, std::wstring(L"`") + table + L"`, `Root`, `Key`, `Name`, `Component_`",
                       {{L"Package", L"#2", L"SOFTWARE\\Package", L"x", L"nvcsp"}});
    }
    // Type, Name, Parameter, Value, Component_, Condition, ListProperty. The reader rows that are
    // written, and those left out for a false condition: the sample's round trip.
    std::vector<std::vector<std::wstring>> readers = {
        // Left out silently: component not installed.
        {L"KeyCarriers", L"NotLocal", L"P", L"v", L"Off", L"1", L""},
        // Left out and reported: a condition the installer cannot evaluate.
        {L"KeyCarriers", L"BadCondition", L"P", L"v", L"On", L"(((", L""}};
    // Cards: name, ATR, Mask (component "Off"), "CalaisRegistered" condition ("On"); null: no row.
    const std::array<const wchar_t*, 4> cardTable[] = {
        {L"Token", L"#x3b8f0", L"#xFFFF", L"1"}, {L"Vendor\\Model", L"#x3C01", L"#xFF00", L"ProductName"},
        {L"Off", L"#x3D01", L"#xFFFF", L"0"},    {L"No condition", L"#x3D02", L"#xFFFF", L""},
        {L"No mask", L"#x3B02", nullptr, L"1"},  {L"X", L"#x3B01", L"#xFFFF", L"1"},
        {L"Y", L"#x3B05", L"#xFFFF", L"1"},      {L"W", L"#x3D01", L"#xFFFF", L"1"}};
    for (const auto& [name, atr, mask, condition] : cardTable) {
        for (const auto& [parameter, value] : {std::pair{L"ATR", atr}, {L"Mask", mask}}) {
            if (value != nullptr) {
                readers.push_back({L"SmartCards", name, parameter, value, L"Off", L"1", L""});
            }
        }
        if (condition != nullptr) {
            readers.push_back({L"SmartCards", name, L"CalaisRegistered", L"1", L"On", condition, L""});
        }
    }
    for (const auto& row : readers) {
        package.Sql(L"INSERT INTO `RegReaders` (`Type`, `Name`, `Parameter`, `Value`, `Component_`, "
                    L"`Condition`, `ListProperty`) VALUES (?, ?, ?, ?, ?, ?, ?)",
                    row);
    }
    package.Commit();
    package.Close();
    // Also the provider's own. X overlaps Other32, Y Other64 (through its mask), W the provider's own.
    WriteValues(kCalais32 + L"\\SmartCards\\Other32", kOther32);
    WriteValues(kCards + L"Other64", kOther64);
    WriteValues(kCards + L"NV_Own", {{L"ATR", Binary({0x3D, 0x01})}, {L"ATRMask", Binary({0xFF, 0xFF})}});

    Rows cards = CardRows(L"NV_Token", L"#x3B8F", L"#xFFFF");
    cards.merge(CardRows(L"NV_Vendor_Model", L"#x3C01", L"#xFF00"));
    EXPECT_EQ(Run(package.path(), L"OVERWRITEWL", L""), 0u);
    EXPECT_EQ(RegistryRows(), cards);
    EXPECT_EQ(RemovalRows(), Rows{});
    // The card types' "CalaisRegistered" row without a condition is reported as invalid too.
    const Row invalid = {L"666", L"ProcessRegReaders", L"Invalid Condition in RegReader Table", L"13"};
    EXPECT_EQ(messages_.FieldsOf(INSTALLMESSAGE_ERROR),
              (std::vector<Row>{
                  invalid,
                  invalid,
                  {L"666", L"ProcessCalaisRegitration", L"Card type 'No mask' has no Mask row", L"13"}}));

    EXPECT_EQ(Run(package.path(), L"OVERWRITEWL", L"1"), 0u);
    for (const auto& [card, atr] : {std::pair{L"X", L"#x3B01"}, {L"Y", L"#x3B05"}, {L"W", L"#x3D01"}}) {
        cards.merge(CardRows(std::wstring(L"NV_") + card, atr, L"#xFFFF"));
    }
    // A backup row for each value of the card types replaced.
    Rows rows = RegistryRows();
    EXPECT_EQ(
        std::erase_if(rows, [](const auto& row) { return row[0].find(L"Backup") != std::wstring::npos; }),
        kOther32.size() + kOther64.size());
    EXPECT_EQ(rows, cards);
    EXPECT_EQ(RemovalRows(),
              (Rows{{L"_REMOVE_" + kCards + L"Other32", L"2", kCards + L"Other32", L"-", L"nvcsp"},
                    {L"_64__REMOVE_" + kCards + L"Other64", L"2", kCards + L"Other64", L"-", L"nvcsp64"}}));
}

// The provider's card types (its name matched exactly) go and its backups come back, in both views.
TEST_F(SmartCardTypes, UninstallRemovesTheProvidersCardTypesAndRestoresItsBackups) {
    for (const std::wstring& calais : {kCalais, kCalais32}) {
        for (const auto& [key, provider] :
             {std::pair{L"SmartCards\\NV_A", kProvider},
              {L"SmartCards\\NV_B", L"norvane csp"},
              {L"SmartCards\\Other", L"Other CSP"},
              {L"SmartCardsBackup\\backup_Norvane CSP\\Orig", L"Orig CSP"},
              {L"SmartCardsBackup\\backup_Other CSP\\Foreign", L"Foreign CSP"}}) {
            WriteRegistryString(HKEY_LOCAL_MACHINE, calais + L"\\" + key, L"Crypto Provider", provider);
        }
    }
    auto has = [](const std::wstring& calais, const std::wstring& card) {
        return RegistryKeyExists(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\" + card);
    };
    ActionSession session;
    EXPECT_EQ(session.Run("UninstallSmartCard", kProvider), 0u);
    for (const std::wstring& calais : {kCalais, kCalais32}) {
        SCOPED_TRACE(testing::PrintToString(calais));
        EXPECT_FALSE(has(calais, L"NV_A") || has(calais, L"Foreign"));
        EXPECT_TRUE(has(calais, L"NV_B") && has(calais, L"Other"));
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\Orig", L"Crypto Provider"),
                  L"Orig CSP");
    }
}

} // namespace
} // namespace harness
