// ProcessPropertyEx (immediate): applies the package's PropertyEx table. Each
// row whose condition holds (or is empty) gives its property the row's value,
// formatted by the installer, when the property is empty or the row's flag
// allows overwriting. A property that holds just "0" is taken for unset and
// cleared instead; any other value stays. The first failure stops the action
// with 1603.
#include <cstddef>
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

constexpr std::size_t kPropertyNameLength = 73;
constexpr std::size_t kValueLength = 256;
constexpr std::size_t kConditionLength = 256;
constexpr int kOverwriteFlag = 1;
constexpr int kNullInteger = static_cast<int>(MSI_NULL_INTEGER);

// Each text must fit its column's buffer with the terminator.
struct PropertyRule {
    std::wstring property;
    std::wstring value;
    int flags = 0;
    std::wstring condition;
};

bool ReadField(MSIHANDLE record, UINT field, std::wstring& text, std::size_t capacity) {
    return WithinCapacity(GetRecordString(record, field, text), text, capacity) == ERROR_SUCCESS;
}

bool ReadRule(MSIHANDLE record, PropertyRule& rule) {
    if (!ReadField(record, 1, rule.property, kPropertyNameLength) ||
        !ReadField(record, 2, rule.value, kValueLength)) {
        return false;
    }
    rule.flags = MsiRecordGetInteger(record, 3);
    return rule.flags != kNullInteger && ReadField(record, 4, rule.condition, kConditionLength);
}

// The row's value with the installer's property references resolved.
UINT SetFormattedValue(MSIHANDLE session, const PropertyRule& rule) {
    MsiHandle record(MsiCreateRecord(0));
    if (!record) {
        return ERROR_INSTALL_FAILURE;
    }
    std::wstring formatted;
    // However long the formatted value grows, it is set whole.
    if (MsiRecordSetStringW(record.get(), 0, rule.value.c_str()) != ERROR_SUCCESS ||
        FormatRecord(session, record.get(), formatted) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    return SetProperty(session, rule.property.c_str(), formatted.c_str());
}

// A value of exactly "0".
bool HoldsZero(MSIHANDLE session, const wchar_t* property) {
    std::wstring current;
    return GetPropertyString(session, property, current) == ERROR_SUCCESS && current == L"0";
}

UINT ApplyRule(MSIHANDLE session, const PropertyRule& rule) {
    switch (MsiEvaluateConditionW(session, rule.condition.c_str())) {
    case MSICONDITION_ERROR:
        return ERROR_INSTALL_FAILURE;
    case MSICONDITION_FALSE:
        return ERROR_SUCCESS;
    default:
        break;
    }
    wchar_t empty[1] = L"";
    DWORD length = 0;
    if (MsiGetPropertyW(session, rule.property.c_str(), empty, &length) != ERROR_MORE_DATA) {
        return ERROR_INSTALL_FAILURE;
    }
    if (length == 0 || (rule.flags & kOverwriteFlag) != 0) {
        return SetFormattedValue(session, rule);
    }
    if (length == 1 && HoldsZero(session, rule.property.c_str())) {
        return SetProperty(session, rule.property.c_str(), L"");
    }
    return ERROR_SUCCESS;
}

UINT ProcessRules(MSIHANDLE session) {
    View view;
    if (OpenView(session, kPropertyExQuery, view) != ERROR_SUCCESS ||
        ForEachRecord(view.get(), [&](MSIHANDLE record) {
            PropertyRule rule;
            return ReadRule(record, rule) ? ApplyRule(session, rule) : ERROR_INSTALL_FAILURE;
        }) != ERROR_SUCCESS) {
        return ERROR_INSTALL_FAILURE;
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI ProcessPropertyEx(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"ProcessPropertyEx", setuputils::ProcessRules);
}
