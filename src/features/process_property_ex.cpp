// ProcessPropertyEx (immediate): applies the package's PropertyEx table. Each
// row whose condition holds (or is empty) gives its property the row's value,
// formatted by the installer, when the property is empty or the row's flag
// allows overwriting. A property that holds just "0" is taken for unset and
// cleared instead; any other value stays. The first failure stops the action
// with 1603.
#include <string>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kPropertyExQuery[] = L"SELECT `Property`, `Value`, `Flags`, `Condition` FROM `PropertyEx`";

constexpr DWORD kPropertyNameLength = 73;
constexpr DWORD kValueLength = 256;
constexpr DWORD kConditionLength = 256;
constexpr int kOverwriteFlag = 1;
constexpr int kNullInteger = static_cast<int>(MSI_NULL_INTEGER);

struct PropertyRule {
    wchar_t property[kPropertyNameLength] = L"";
    wchar_t value[kValueLength] = L"";
    int flags = 0;
    wchar_t condition[kConditionLength] = L"";
};

template <DWORD Length>
bool ReadField(MSIHANDLE record, UINT field, wchar_t (&text)[Length]) {
    DWORD size = Length;
    return MsiRecordGetStringW(record, field, text, &size) == ERROR_SUCCESS;
}

bool ReadRule(MSIHANDLE record, PropertyRule& rule) {
    if (!ReadField(record, 1, rule.property) || !ReadField(record, 2, rule.value)) {
        return false;
    }
    rule.flags = MsiRecordGetInteger(record, 3);
    return rule.flags != kNullInteger && ReadField(record, 4, rule.condition);
}

// The row's value with the installer's property references resolved.
UINT SetFormattedValue(MSIHANDLE session, const PropertyRule& rule) {
    MsiHandle record(MsiCreateRecord(0));
    if (!record) {
        return ERROR_INSTALL_FAILURE;
    }
    wchar_t formatted[kValueLength] = L"";
    DWORD size = kValueLength;
    if (MsiRecordSetStringW(record.get(), 0, rule.value) != ERROR_SUCCESS ||
        MsiFormatRecordW(session, record.get(), formatted, &size) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    return SetProperty(session, rule.property, formatted);
}

// A value of exactly "0".
bool HoldsZero(MSIHANDLE session, const wchar_t* property) {
    wchar_t current[2] = L"";
    DWORD size = 2;
    return MsiGetPropertyW(session, property, current, &size) == ERROR_SUCCESS && current[0] == L'0';
}

UINT ApplyRule(MSIHANDLE session, const PropertyRule& rule) {
    switch (MsiEvaluateConditionW(session, rule.condition)) {
    case MSICONDITION_ERROR:
        return ERROR_INSTALL_FAILURE;
    case MSICONDITION_FALSE:
        return ERROR_SUCCESS;
    default:
        break;
    }
    wchar_t empty[1] = L"";
    DWORD length = 0;
    if (MsiGetPropertyW(session, rule.property, empty, &length) != ERROR_MORE_DATA) {
        return ERROR_INSTALL_FAILURE;
    }
    if (length == 0 || (rule.flags & kOverwriteFlag) != 0) {
        return SetFormattedValue(session, rule);
    }
    if (length == 1 && HoldsZero(session, rule.property)) {
        return SetProperty(session, rule.property, L"");
    }
    return ERROR_SUCCESS;
}

UINT ProcessRules(MSIHANDLE session) {
    MsiHandle database = OpenActiveDatabase(session);
    View view;
    if (MsiDatabaseOpenViewW(database.get(), kPropertyExQuery, view.put()) != ERROR_SUCCESS ||
        MsiViewExecute(view.get(), 0) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    for (;;) {
        MsiHandle record;
        const UINT fetched = MsiViewFetch(view.get(), record.put());
        if (fetched == ERROR_NO_MORE_ITEMS) {
            return ERROR_SUCCESS;
        }
        PropertyRule rule;
        if (fetched != ERROR_SUCCESS || !ReadRule(record.get(), rule) ||
            ApplyRule(session, rule) != ERROR_SUCCESS) {
            return ERROR_INSTALL_FAILURE;
        }
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI ProcessPropertyEx(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"ProcessPropertyEx",
                                   [&] { return setuputils::ProcessRules(session); });
}
