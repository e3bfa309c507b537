// Smart-card type registration against a real installer session and Wine's
// registry: the temporary rows ProcessCalaisRegitration adds (and what the
// installer makes of them), and UninstallSmartCard in both registry views.
#include <gtest/gtest.h>

#include <windows.h>

#include <array>
#include <map>
#include <memory>
#include <tuple>
#include <string>
#include <vector>

#include "action_session.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "machine.h"
#include "message_recorder.h"
#include "readers/calais_registration.h"
#include "test_package.h"

namespace harness {
namespace {

using setuputils::GetRecordString;
using Bytes = std::vector<BYTE>;
using Rows = std::map<std::wstring, std::wstring>;

const std::wstring kProvider = L"Norvane CSP";
const std::wstring kCalais = L"SOFTWARE\\Microsoft\\Cryptography\\Calais";
const std::wstring kCalais32 = L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography\\Calais";
const std::wstring kCards = kCalais + L"\\SmartCards\\";

using Values = std::vector<std::pair<std::wstring, RegistryData>>;

RegistryData Binary(Bytes bytes) {
    return {REG_BINARY, std::move(bytes)};
}

void WriteValues(const std::wstring& key, const Values& values) {
    for (const auto& [name, data] : values) {
        RestoreRegistryValue(HKEY_LOCAL_MACHINE, key, name, data);
    }
}

// Card types of other vendors: one in the 32-bit view, with values of every
// kind, and one in the 64-bit view whose mask leaves the low half of its
// second byte out.
const Values kOther32 = {{L"ATR", Binary({0x3B, 0x01})},
                         {L"ATRMask", Binary({0xFF, 0xFF})},
                         {L"Crypto Provider", RegistryText(L"Other [CSP]")},
                         {L"Flags", {REG_DWORD, {0xFF, 0xFF, 0xFF, 0xFF}}},
                         {L"List", RegistryText({L"a\0[b]\0", 6}, REG_MULTI_SZ)},
                         {L"Path", RegistryText(L"%SystemRoot%\\{x}", REG_EXPAND_SZ)}};
const Values kOther64 = {{L"ATR", Binary({0x3B, 0x02})},
                         {L"ATRMask", Binary({0xFF, 0xF0})},
                         {L"Crypto Provider", RegistryText(L"#Other")}};

// Only the two keys: Wine keeps link keys below Calais that cannot be deleted
// with the tree.
void ClearCardTypes() {
    for (const std::wstring& calais : {kCalais, kCalais32}) {
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards");
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, calais + L"\\SmartCardsBackup");
    }
}

// The rows of `query` other than the package's own, by identifier: the other
// fields joined by "|".
Rows AddedRows(MSIHANDLE session, const wchar_t* query) {
    setuputils::MsiHandle database(MsiGetActiveDatabase(session)), view, record;
    Rows rows;
    MsiDatabaseOpenViewW(database.get(), query, view.put());
    MsiViewExecute(view.get(), 0);
    while (MsiViewFetch(view.get(), record.put()) == ERROR_SUCCESS) {
        std::wstring identifier, field, fields;
        GetRecordString(record.get(), 1, identifier);
        for (UINT i = 2; i <= MsiRecordGetFieldCount(record.get()); ++i) {
            GetRecordString(record.get(), i, field);
            fields += (i > 2 ? L"|" : L"") + field;
        }
        if (identifier != L"Package") {
            rows[identifier] = fields;
        }
    }
    return rows;
}

// The Registry rows of one card in both views.
Rows CardRows(const std::wstring& key, const std::wstring& atr, const std::wstring& mask) {
    Rows rows;
    for (const wchar_t* view : {L"", L"_64_"}) {
        const std::wstring component = *view ? L"nvcsp64" : L"nvcsp";
        rows[view + kCards + key + L"\\ATR"] = kCards + key + L"|ATR|" + atr + L"|" + component;
        rows[view + kCards + key + L"\\ATRMask"] = kCards + key + L"|ATRMask|" + mask + L"|" + component;
        rows[view + kCards + key + L"\\Crypto Provider"] =
            kCards + key + L"|Crypto Provider|" + kProvider + L"|" + component;
    }
    return rows;
}

class SmartCardTypes : public ::testing::Test {
protected:
    void SetUp() override {
        ClearCardTypes();
        package_.AddStandardTables();
        package_.AddRegReadersTable();
        package_.Sql(L"CREATE TABLE `RemoveRegistry` (`RemoveRegistry` CHAR(72) NOT NULL, `Root` SHORT, "
                     L"`Key` CHAR(255) LOCALIZABLE, `Name` CHAR(255), `Component_` CHAR(72) "
                     L"PRIMARY KEY `RemoveRegistry`)");
        // The writers make their rows from a row the table holds already.
        for (const wchar_t* table : {L"Registry", L"RemoveRegistry"}) {
            package_.Sql(std::wstring(L"INSERT INTO `") + table + L"` (`" + table +
                         L"`, `Root`, `Key`, `Name`, `Component_`) "
                         L"VALUES ('Package', 2, 'SOFTWARE\\Package', 'x', 'nvcsp')");
        }
        package_.SetProperty(L"DefaultCSP80Name", kProvider);
        package_.AddRegistryComponent(L"nvcsp", false);
        package_.AddRegistryComponent(L"nvcsp64", true);
    }

    // Cards: name, then "ATR" and "Mask" values (none when null), then the
    // condition of its "CalaisRegistered" row (none when null).
    void AddCards(const std::vector<std::array<const wchar_t*, 4>>& cards) {
        for (const auto& card : cards) {
            for (int i = 1; i <= 3; ++i) {
                if (card[i] != nullptr) {
                    const wchar_t* parameter = i == 1 ? L"ATR" : i == 2 ? L"Mask" : L"CalaisRegistered";
                    package_.Sql(L"INSERT INTO `RegReaders` (`Type`, `Name`, `Parameter`, `Value`, "
                                 L"`Component_`, `Condition`) VALUES ('SmartCards', ?, ?, ?, 'nvcsp', ?)",
                                 {card[0], parameter, i == 3 ? L"1" : card[i], i == 3 ? card[3] : L"1"});
                }
            }
        }
        package_.Commit();
        package_.Close();
    }

    // Each session opens the package file anew, without an earlier session's rows.
    UINT Register(const std::map<std::wstring, std::wstring>& properties = {}) {
        session_ = std::make_unique<TestSession>(package_.path());
        for (const auto& [name, value] : properties) {
            session_->SetProperty(name, value);
        }
        return setuputils::ProcessCalaisRegitration(session_->get());
    }
    Rows RegistryRows() {
        return AddedRows(session_->get(),
                         L"SELECT `Registry`, `Key`, `Name`, `Value`, `Component_` FROM `Registry`");
    }
    Rows RemovalRows() {
        return AddedRows(session_->get(),
                         L"SELECT `RemoveRegistry`, `Key`, `Name`, `Component_` FROM `RemoveRegistry`");
    }

    TestPackage package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

// Field reads of fetched records never fail in a real session, so the
// "RecordGetString() fail" reports are not shown here.
TEST_F(SmartCardTypes, RegistersTheCardsWhoseRegistrationHolds) {
    AddCards({{{L"Token", L"#x3b8f0", L"#xFFFF", L"1"}},
              {{L"Vendor\\Model", L"#x3C01", L"#xFF00", L"ProductName"}},
              {{L"Off", L"#x3D01", L"#xFFFF", L"0"}},
              {{L"No condition", L"#x3D02", L"#xFFFF", L""}},
              {{L"Unmarked", L"#x3D03", L"#xFFFF", nullptr}},
              {{L"No mask", L"#x3B02", nullptr, L"1"}},
              {{L"No hash", L"3B03", L"#xFFFF", L"NOHASH"}}});
    EXPECT_EQ(setuputils::ProcessCalaisRegitration(0), 0x80090005u); // no properties to read
    EXPECT_EQ(Register({{L"Installed", L"1"}}), 0u);
    EXPECT_EQ(RegistryRows(), Rows{});

    EXPECT_EQ(Register(), 0u);
    Rows expected = CardRows(L"NV_Token", L"#x3B8F", L"#xFFFF");
    expected.merge(CardRows(L"NV_Vendor_Model", L"#x3C01", L"#xFF00"));
    EXPECT_EQ(RegistryRows(), expected);
    EXPECT_EQ(RemovalRows(), Rows{});
    ASSERT_EQ(messages_.OfType(INSTALLMESSAGE_ERROR).size(), 1u);
    EXPECT_EQ(messages_.OfType(INSTALLMESSAGE_ERROR)[0].text,
              L"Action ProcessCalaisRegitration: Card type 'No mask' has no Mask row (13).");

    // A value without "#" fails the action before any row is added.
    EXPECT_EQ(Register({{L"NOHASH", L"1"}}), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    EXPECT_EQ(RegistryRows(), Rows{});
    EXPECT_EQ(messages_.OfType(INSTALLMESSAGE_ERROR).size(), 3u);
}

// Besides the other vendors' card types, the provider's own and one without
// a mask, which overlaps nothing. X overlaps the 32-bit one, Y the 64-bit one
// through its mask, W the provider's own; the empty mask of E overlaps all.
class SmartCardTypesOverlapping : public SmartCardTypes {
protected:
    void SetUp() override {
        SmartCardTypes::SetUp();
        AddCards({{{L"X", L"#x3B01", L"#xFFFF", L"1"}},
                  {{L"Y", L"#x3B05", L"#xFFFF", L"1"}},
                  {{L"Z", L"#x3F01", L"#xFFFF", L"1"}},
                  {{L"E", L"#x3F02", L"#x", L"1"}},
                  {{L"W", L"#x3D01", L"#xFFFF", L"1"}}});
        WriteValues(kCalais32 + L"\\SmartCards\\Other32", kOther32);
        WriteValues(kCalais + L"\\SmartCards\\Other64", kOther64);
        WriteValues(kCards + L"NV_Own", {{L"ATR", Binary({0x3D, 0x01})}, {L"ATRMask", Binary({0xFF, 0xFF})}});
        WriteValues(kCards + L"Maskless", {{L"ATR", Binary({0x3F, 0x01})}});
    }
};

TEST_F(SmartCardTypesOverlapping, AreLeftOutUnlessOverwriting) {
    for (const wchar_t* overwrite : {L"", L"0", L"yes"}) {
        SCOPED_TRACE(testing::PrintToString(std::wstring(overwrite)));
        EXPECT_EQ(Register({{L"OVERWRITEWL", overwrite}}), 0u);
        EXPECT_EQ(RegistryRows(), CardRows(L"NV_Z", L"#x3F01", L"#xFFFF"));
        EXPECT_EQ(RemovalRows(), Rows{});
    }
}

TEST_F(SmartCardTypesOverlapping, ReplaceTheCardTypesTheyOverlapWhenOverwriting) {
    EXPECT_EQ(Register({{L"OVERWRITEWL", L"1"}}), 0u);
    Rows cards = CardRows(L"NV_E", L"#x3F02", L"#x");
    for (const auto& [card, atr] :
         {std::pair{L"X", L"#x3B01"}, {L"Y", L"#x3B05"}, {L"Z", L"#x3F01"}, {L"W", L"#x3D01"}}) {
        cards.merge(CardRows(std::wstring(L"NV_") + card, atr, L"#xFFFF"));
    }
    // The backup rows, whose values the installer's writing shows below.
    Rows rows = RegistryRows();
    EXPECT_EQ(
        std::erase_if(
            rows, [](const auto& row) { return row.first.find(L"SmartCardsBackup") != std::wstring::npos; }),
        kOther32.size() + kOther64.size());
    EXPECT_EQ(rows, cards);
    EXPECT_EQ(RemovalRows(), (Rows{{L"_REMOVE_" + kCards + L"Other32", kCards + L"Other32|-|nvcsp"},
                                   {L"_64__REMOVE_" + kCards + L"Other64", kCards + L"Other64|-|nvcsp64"}}));

    // What the installer makes of the rows: the other vendors' card types are
    // in the provider's backup key, value for value, in their own views.
    session_->Cost();
    for (const wchar_t* action : {L"InstallValidate", L"InstallInitialize", L"RemoveRegistryValues",
                                  L"WriteRegistryValues", L"InstallFinalize"}) {
        EXPECT_EQ(session_->DoAction(action), 0u) << action;
    }
    for (const auto& [calais, name, values] :
         {std::tuple{kCalais32, L"Other32", kOther32}, {kCalais, L"Other64", kOther64}}) {
        EXPECT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\" + name));
        for (const auto& [value, data] : values) {
            EXPECT_EQ(ReadRegistryValue(HKEY_LOCAL_MACHINE,
                                        calais + L"\\SmartCardsBackup\\backup_" + kProvider + L"\\" + name,
                                        value),
                      data)
                << value;
        }
        EXPECT_EQ(ReadRegistryValue(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\NV_Y", L"ATR"),
                  Binary({0x3B, 0x05}));
    }
    EXPECT_TRUE(RegistryKeyExists(HKEY_LOCAL_MACHINE, kCards + L"NV_Own"));
}

// The rows for the 32-bit view are added first: with the root as the
// Registry table's key, only the first row added finds its key free.
TEST_F(SmartCardTypes, AddsTheRowsOfThe32BitViewFirst) {
    package_.Sql(L"DROP TABLE `Registry`");
    package_.Sql(
        L"CREATE TABLE `Registry` (`Registry` CHAR(72) NOT NULL, `Root` SHORT NOT NULL, `Key` CHAR(255), "
        L"`Name` CHAR(255), `Value` CHAR(0), `Component_` CHAR(72) PRIMARY KEY `Root`)");
    package_.Sql(L"INSERT INTO `Registry` (`Registry`, `Root`, `Key`, `Component_`) VALUES ('Package', 1, "
                 L"'x', 'nvcsp')");
    AddCards({{{L"X", L"#x3B01", L"#xFFFF", L"1"}}});
    EXPECT_EQ(Register(), 0u);
    EXPECT_EQ(RegistryRows(), (Rows{{kCards + L"NV_X\\ATR", kCards + L"NV_X|ATR|#x3B01|nvcsp"}}));
}

class UninstallSmartCard : public ::testing::Test {
protected:
    void SetUp() override {
        ClearCardTypes();
        for (const std::wstring& calais : {kCalais, kCalais32}) {
            for (const auto& [card, provider] : {std::pair{L"NV_A", kProvider},
                                                 {L"NV_B", L"norvane csp"},
                                                 {L"NV_C", kProvider + L" "},
                                                 {L"Other", L"Other CSP"}}) {
                WriteRegistryString(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\" + card, L"Crypto Provider",
                                    provider);
            }
            const std::wstring backups = calais + L"\\SmartCardsBackup\\";
            WriteRegistryString(HKEY_LOCAL_MACHINE, backups + L"backup_" + kProvider + L"\\Orig",
                                L"Crypto Provider", L"Orig CSP");
            WriteRegistryDword(HKEY_LOCAL_MACHINE, backups + L"backup_" + kProvider + L"\\Orig\\Sub", L"Deep",
                               7);
            WriteRegistryString(HKEY_LOCAL_MACHINE, backups + L"backup_Other CSP\\Foreign",
                                L"Crypto Provider", L"Foreign CSP");
        }
    }
    static bool Has(const std::wstring& calais, const std::wstring& card) {
        return RegistryKeyExists(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\" + card);
    }

    ActionSession session_;
};

TEST_F(UninstallSmartCard, RemovesTheProvidersCardTypesAndRestoresItsBackups) {
    EXPECT_EQ(session_.library().Action("UninstallSmartCard")(0), 0u); // no provider name to read
    EXPECT_EQ(session_.Run("UninstallSmartCard", L""), 0u);
    EXPECT_TRUE(Has(kCalais, L"NV_A") && Has(kCalais32, L"NV_A"));

    EXPECT_EQ(session_.Run("UninstallSmartCard", kProvider), 0u);
    for (const std::wstring& calais : {kCalais, kCalais32}) {
        SCOPED_TRACE(testing::PrintToString(calais));
        EXPECT_FALSE(Has(calais, L"NV_A"));
        EXPECT_TRUE(Has(calais, L"NV_B") && Has(calais, L"NV_C") && Has(calais, L"Other"));
        EXPECT_EQ(ReadRegistryString(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\Orig", L"Crypto Provider"),
                  L"Orig CSP");
        EXPECT_EQ(ReadRegistryDword(HKEY_LOCAL_MACHINE, calais + L"\\SmartCards\\Orig\\Sub", L"Deep"), 7u);
        EXPECT_FALSE(Has(calais, L"Foreign"));
    }
}

// A card type the action may not delete in the 32-bit view ends the action
// there: the 64-bit view keeps the provider's card types. (Wine grants DELETE
// whatever the key's list says, so the card type holds a subkey the action
// may not open at all.)
TEST_F(UninstallSmartCard, StopsAtTheFirstViewThatFails) {
    const std::wstring locked = kCalais32 + L"\\SmartCards\\NV_A\\Locked";
    WriteRegistryDword(HKEY_LOCAL_MACHINE, locked, L"Value", 1);
    ASSERT_EQ(SetKeyDacl(locked, L"D:(A;;KR;;;SY)(A;;WD;;;BA)"), ERROR_SUCCESS);

    EXPECT_EQ(session_.Run("UninstallSmartCard", kProvider), 0x80090010u);
    EXPECT_TRUE(Has(kCalais, L"NV_A"));
    EXPECT_FALSE(Has(kCalais32, L"Orig"));
    SetKeyDacl(locked, L"D:(A;;KA;;;BA)");
}

} // namespace
} // namespace harness
