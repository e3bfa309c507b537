// ProcessRegReaders (immediate): turns each row of the package's RegReaders
// table whose condition holds and whose component is being installed locally
// into temporary Registry rows below the provider's configuration key, for the
// installer's own registry steps to write and remove; then registers the
// smart-card types, whose result becomes the action's.
#include <cwchar>
#include <optional>
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "readers/calais_registration.h"
#include "readers/reader_rows.h"
#include "readers/registry_rows.h"

namespace setuputils {
namespace {

constexpr wchar_t kAction[] = L"ProcessRegReaders";
constexpr wchar_t kRegReadersTable[] = L"RegReaders";
constexpr wchar_t kRegReadersQuery[] =
    L"SELECT `RegReaders`.`Type`, `RegReaders`.`Name`, `RegReaders`.`Parameter`, `RegReaders`.`Value`, "
    L"`RegReaders`.`Component_`, `RegReaders`.`Condition`, `RegReaders`.`ListProperty` FROM `RegReaders`";
constexpr UINT kInvalidConditionCode = ERROR_INVALID_DATA; // 13

// The record's fields, in query order.
constexpr std::wstring RegReaderRow::*kColumns[] = {
    &RegReaderRow::type,      &RegReaderRow::name,      &RegReaderRow::parameter,   &RegReaderRow::value,
    &RegReaderRow::component, &RegReaderRow::condition, &RegReaderRow::listProperty};

// A field that cannot be read stays empty.
RegReaderRow ReadRow(MSIHANDLE record) {
    RegReaderRow row;
    UINT field = 1;
    for (auto column : kColumns) {
        GetRecordString(record, field++, row.*column);
    }
    return row;
}

// Every field followed by ";", empty ones too.
std::wstring LogLine(const RegReaderRow& row) {
    std::wstring line;
    for (auto column : kColumns) {
        line += row.*column + L";";
    }
    return line;
}

// The value of the row's list property. Only a failed second read is
// reported: a first answer other than "more data" leaves the list empty.
std::wstring ReadListProperty(MSIHANDLE session, const std::wstring& name) {
    std::wstring value;
    int calls = 0;
    const UINT status = ReadSizedText(value, [&](wchar_t* buffer, DWORD* size) {
        ++calls;
        return MsiGetPropertyW(session, name.c_str(), buffer, size);
    });
    if (status != ERROR_SUCCESS && calls == 2) {
        ReportActionError(session, L"PrepareToWrite", L"MsiGetProperty() fail", GetLastError());
    }
    return value;
}

// Adds the Registry rows of one RegReaders row. Returns 0 or the OR of the
// statuses of the rows that could not be added.
UINT PrepareToWrite(MSIHANDLE session, const RegReaderRow& row) {
    std::optional<std::wstring> list;
    if (!row.listProperty.empty()) {
        list = ReadListProperty(session, row.listProperty);
    }
    UINT result = ERROR_SUCCESS;
    for (const ReaderValuePlace& place : ReaderValuePlaces(row.type, row.name, row.parameter, list)) {
        result |= AddRegistryRow(session, place.identifier, place.key, place.name, row.value, row.component);
    }
    if (result != ERROR_SUCCESS) {
        ReportActionError(session, L"PrepareToWrite", L"PrepareToWrite() fail", result);
    }
    return result;
}

// An empty condition is no condition the installer can evaluate: it is
// reported as invalid, like a malformed one, and the row is left out.
bool ConditionHolds(MSIHANDLE session, const std::wstring& condition) {
    switch (MsiEvaluateConditionW(session, condition.c_str())) {
    case MSICONDITION_TRUE:
        return true;
    case MSICONDITION_FALSE:
        return false;
    default:
        ReportActionError(session, kAction, L"Invalid Condition in RegReader Table", kInvalidConditionCode);
        return false;
    }
}

bool IsBeingInstalledLocally(MSIHANDLE session, const std::wstring& component) {
    INSTALLSTATE installed = INSTALLSTATE_UNKNOWN;
    INSTALLSTATE action = INSTALLSTATE_UNKNOWN;
    return MsiGetComponentStateW(session, component.c_str(), &installed, &action) == ERROR_SUCCESS &&
           action == INSTALLSTATE_LOCAL;
}

void ProcessRow(MSIHANDLE session, MSIHANDLE record) {
    const RegReaderRow row = ReadRow(record);
    ReportInfo(session, LogLine(row).c_str());
    if (!ConditionHolds(session, row.condition)) {
        return;
    }
    // The smart-card type registration handles its own rows. A row that cannot
    // be added has been reported and does not stop the walk.
    if (IsBeingInstalledLocally(session, row.component) && row.parameter != kCalaisRegisteredParameter) {
        PrepareToWrite(session, row);
    }
}

UINT ReportFailure(MSIHANDLE session) {
    const UINT code = GetLastError();
    ReportActionError(session, kAction, L"ProcessRegReaders fail", code);
    return code;
}

UINT ProcessRegReaderRows(MSIHANDLE session) {
    MsiHandle database = OpenActiveDatabase(session);
    if (!database) {
        return ReportFailure(session);
    }
    // Without the table the smart-card types are not registered either.
    if (MsiDatabaseIsTablePersistentW(database.get(), kRegReadersTable) != MSICONDITION_TRUE) {
        return ReportFailure(session);
    }
    View view;
    if (ExecuteView(database.get(), kRegReadersQuery, view) == ERROR_SUCCESS) {
        ForEachRecord(view.get(), [&](MSIHANDLE record) {
            ProcessRow(session, record);
            return static_cast<UINT>(ERROR_SUCCESS);
        });
    }
    return ProcessCalaisRegitration(session);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI ProcessRegReaders(MSIHANDLE session) {
    return setuputils::GuardAction(session, setuputils::kAction, setuputils::ProcessRegReaderRows);
}
