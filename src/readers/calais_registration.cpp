// ProcessCalaisRegitration (run at the end of ProcessRegReaders): on first
// installation, registers the provider's smart-card types whose
// "CalaisRegistered" row holds, in the 32-bit and the 64-bit registry view,
// through temporary Registry rows. Card types already registered that a new
// card would overlap either keep their place (the new card is left out) or,
// with OVERWRITEWL=1, are backed up below the provider's backup key and
// removed through temporary RemoveRegistry rows.
#include "readers/calais_registration.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <msiquery.h>

#include "frame/handles.h"
#include "frame/session.h"
#include "readers/registry_rows.h"
#include "readers/smart_card_types.h"
#include "registry/registry_library.h"

namespace setuputils {
namespace {

constexpr wchar_t kAction[] = L"ProcessCalaisRegitration";
constexpr wchar_t kRegisteredCardsQuery[] =
    L"SELECT `RegReaders`.`Name`, `RegReaders`.`Condition`,`RegReaders`.`Parameter` FROM `RegReaders` "
    L"WHERE `RegReaders`.`Parameter`='CalaisRegistered'";
constexpr wchar_t kCardRowsQuery[] =
    L"SELECT `RegReaders`.`Name`, `RegReaders`.`Condition`,`RegReaders`.`Parameter`,`RegReaders`.`Value`, "
    L"`RegReaders`.`Component_` FROM `RegReaders` WHERE `RegReaders`.`Parameter`='ATR' OR "
    L"`RegReaders`.`Parameter`='Mask'";

constexpr UINT kPropertyReadFailure = 0x80090005;
// A card left out is a package error; one whose value has no "#" stops the
// registration, and the action fails with 1603 before any row is added.
constexpr UINT kCardDefectCode = ERROR_INVALID_DATA; // 13
constexpr UINT kRegistrationStopped = ERROR_INSTALL_FAILURE;

struct ExistingCardType {
    std::wstring name;
    CardBytes atr;
    CardBytes mask;
};

// Runs `visit` on each row of `query`. A view that cannot be opened has no
// rows. Returns 0, or the status that ended the walk: a failed fetch, or the
// non-zero status `visit` returned.
template <typename Visit>
UINT WalkRows(MSIHANDLE session, const wchar_t* query, Visit visit) {
    View view;
    if (OpenView(session, query, view) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    return ForEachRecord(view.get(), visit);
}

// The names of the cards whose "CalaisRegistered" row's condition holds.
UINT CollectRegisteredNames(MSIHANDLE session, std::set<std::wstring>& names) {
    return WalkRows(session, kRegisteredCardsQuery, [&](MSIHANDLE record) {
        RegReaderRow row;
        if (const UINT status = GetRecordStrings(record, {&row.name, &row.condition});
            status != ERROR_SUCCESS) {
            ReportActionError(session, L"smartCardsForWinlogon", L"RecordGetString() fail", status);
            return status;
        }
        if (MsiEvaluateConditionW(session, row.condition.c_str()) == MSICONDITION_TRUE) {
            names.insert(row.name);
        }
        return static_cast<UINT>(ERROR_SUCCESS);
    });
}

// The "ATR" and "Mask" rows of the cards in `registered`.
UINT CollectCardRows(MSIHANDLE session, const std::set<std::wstring>& registered, CardRowsByName& rows) {
    return WalkRows(session, kCardRowsQuery, [&](MSIHANDLE record) {
        RegReaderRow row;
        if (const UINT status = GetRecordStrings(
                record, {&row.name, &row.condition, &row.parameter, &row.value, &row.component});
            status != ERROR_SUCCESS) {
            ReportActionError(session, kAction, L"RecordGetString() fail", status);
            return status;
        }
        if (registered.contains(row.name)) {
            AddCardRow(rows, row.name, row.parameter, row.value);
        }
        return static_cast<UINT>(ERROR_SUCCESS);
    });
}

// Reports the cards that cannot be registered. False when one of them stops
// the registration.
bool ReportLeftOutCards(MSIHANDLE session, const std::vector<LeftOutCard>& leftOut) {
    for (const LeftOutCard& card : leftOut) {
        ReportActionError(session, kAction, DescribeLeftOutCard(card).c_str(), kCardDefectCode);
    }
    return std::none_of(leftOut.begin(), leftOut.end(),
                        [](const LeftOutCard& card) { return card.defect == CardDefect::NoHash; });
}

// The card types registered under `cardTypes` whose "ATR" and "ATRMask" can
// be read; the others never overlap a card.
std::vector<ExistingCardType> ReadCardTypes(const std::wstring& cardTypes) {
    std::vector<ExistingCardType> found;
    for (const std::wstring& name : MappedSubkeyNames(cardTypes)) {
        const std::wstring key = Below(cardTypes, name);
        RegistryValue atr;
        RegistryValue mask;
        if (GetMappedValue(Below(key, kAtrValue), atr) == kRegistryOk &&
            GetMappedValue(Below(key, kAtrMaskValue), mask) == kRegistryOk) {
            found.push_back({name, std::move(atr.data), std::move(mask.data)});
        }
    }
    return found;
}

bool Overlaps(const ExistingCardType& existing, const CalaisCard& card) {
    return MaskedAtrsMatch(card.atr, card.mask, existing.atr, existing.mask);
}

bool OverlapsAny(const ExistingCardType& existing, const std::vector<CalaisCard>& cards) {
    return std::any_of(cards.begin(), cards.end(),
                       [&](const CalaisCard& card) { return Overlaps(existing, card); });
}

// Every value of the key at `path`; false when one cannot be read.
bool ReadAllValues(const std::wstring& path, std::vector<RegistryValue>& values) {
    MappedKeyEnumeration walk;
    RegistryValue value;
    if (walk.Open(path, false) != kRegistryOk) {
        return false;
    }
    RegistryStatus status = kRegistryOk;
    while ((status = walk.Next(value)) == kRegistryOk) {
        values.push_back(std::move(value));
    }
    return status == kRegistryNotFound;
}

// Rows that copy the values of the existing card type below the provider's
// backup key, and a row that removes the card type. A card type whose values
// cannot all be read is kept as it is. Returns the OR of the row results.
UINT BackUpAndRemove(MSIHANDLE session, const CardTypeView& view, const std::wstring& name,
                     const std::wstring& provider) {
    std::vector<RegistryValue> values;
    if (!ReadAllValues(Below(view.cardTypes, name), values)) {
        return ERROR_SUCCESS;
    }
    const std::wstring backup = Below(CardBackupKey(kCardBackupsKey, provider), name);
    UINT result = ERROR_SUCCESS;
    for (const RegistryValue& value : values) {
        result |= AddRegistryRow(session, ValueRowIdentifier(view, backup, value.name), backup, value.name,
                                 RegistryValueText(value.type, value.data), view.component);
    }
    const std::wstring key = Below(kCardTypesKey, name);
    return result | AddRemoveRegistryRow(session, RemovalRowIdentifier(view, key), key, view.component);
}

// OVERWRITEWL=1: the card types the cards overlap, other than the provider's
// own, make way for them, view by view.
UINT ReplaceOverlappedCardTypes(MSIHANDLE session, const std::vector<CalaisCard>& cards,
                                const std::wstring& provider) {
    UINT result = ERROR_SUCCESS;
    for (const CardTypeView& view : kCardTypeViews) {
        for (const ExistingCardType& existing : ReadCardTypes(view.cardTypes)) {
            if (!IsOwnCardKey(existing.name) && OverlapsAny(existing, cards)) {
                result |= BackUpAndRemove(session, view, existing.name, provider);
            }
        }
    }
    return result;
}

// Otherwise a card that overlaps any card type registered in either view,
// the provider's own included, is not registered in either.
void LeaveOutOverlappingCards(std::vector<CalaisCard>& cards) {
    for (const CardTypeView& view : kCardTypeViews) {
        for (const ExistingCardType& existing : ReadCardTypes(view.cardTypes)) {
            std::erase_if(cards, [&](const CalaisCard& card) { return Overlaps(existing, card); });
        }
    }
}

UINT AddCardTypeRows(MSIHANDLE session, const CardTypeView& view, const CalaisCard& card) {
    const std::wstring key = Below(kCardTypesKey, CardKeyName(card.name));
    const std::pair<const wchar_t*, std::wstring> values[] = {
        {kAtrValue, FormatCardBytes(card.atr)},
        {kAtrMaskValue, FormatCardBytes(card.mask)},
        {kCryptoProviderValue, StringValueText(card.provider)},
    };
    UINT result = ERROR_SUCCESS;
    for (const auto& [name, value] : values) {
        result |=
            AddRegistryRow(session, ValueRowIdentifier(view, key, name), key, name, value, view.component);
    }
    return result;
}

} // namespace

UINT ProcessCalaisRegitration(MSIHANDLE session) {
    std::wstring installed;
    std::wstring overwrite;
    if (GetPropertyString(session, L"Installed", installed) != ERROR_SUCCESS ||
        GetPropertyString(session, L"OVERWRITEWL", overwrite) != ERROR_SUCCESS) {
        return kPropertyReadFailure;
    }
    if (!installed.empty()) {
        return ERROR_SUCCESS;
    }
    std::wstring provider;
    if (GetPropertyString(session, L"DefaultCSP80Name", provider) != ERROR_SUCCESS) {
        return kPropertyReadFailure;
    }

    // A walk ended by a failed read keeps what it collected; the first
    // failure is the result.
    std::set<std::wstring> registered;
    CardRowsByName rows;
    UINT result = CollectRegisteredNames(session, registered);
    const UINT cardRows = CollectCardRows(session, registered, rows);
    result = result != ERROR_SUCCESS ? result : cardRows;

    CardList list = BuildCalaisCards(rows, provider);
    if (!ReportLeftOutCards(session, list.leftOut)) {
        return kRegistrationStopped;
    }
    // The results of single rows are reported by their writers and do not
    // change the result.
    if (overwrite == L"1") {
        ReplaceOverlappedCardTypes(session, list.cards, provider);
    } else {
        LeaveOutOverlappingCards(list.cards);
    }
    for (const CardTypeView& view : kCardTypeViews) {
        for (const CalaisCard& card : list.cards) {
            AddCardTypeRows(session, view, card);
        }
    }
    return result;
}

} // namespace setuputils
