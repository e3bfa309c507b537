// Access to the running installation: properties, records, views, messages and progress.
#pragma once

#include <cstddef>
#include <cwchar>
#include <initializer_list>
#include <optional>
#include <string>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "frame/driver_action_data.h"
#include "frame/handles.h"

namespace setuputils {

// Installer message types posted by the actions.
inline constexpr INSTALLMESSAGE kMessageInfo = INSTALLMESSAGE_INFO;         // 0x04000000
inline constexpr INSTALLMESSAGE kMessageError = INSTALLMESSAGE_ERROR;       // 0x01000000
inline constexpr INSTALLMESSAGE kMessageProgress = INSTALLMESSAGE_PROGRESS; // 0x0A000000

// Errors of the package's Error table (and the installer's own 1923).
inline constexpr int kErrorDriverInstall = 555;
inline constexpr int kErrorAction = 666;
inline constexpr int kErrorServiceInstall = 1923;
inline constexpr int kErrorDriverPackage = 25002;

// Reads into a buffer of `size` characters with `read(buffer, &size)` and keeps
// the text up to its first NUL in `text`. Returns the read's status.
template <typename Read>
UINT ReadInto(std::wstring& text, DWORD size, Read read) {
    std::wstring buffer(size, L'\0');
    const UINT status = read(buffer.data(), &size);
    buffer.resize(wcsnlen(buffer.c_str(), buffer.size()));
    text = std::move(buffer);
    return status;
}

// A text of the installer's size-reporting calls: `read(buffer, &size)` is asked
// with no room first and, on "more data", read into the reported size plus one.
// Any other first answer is returned as it is and leaves `text` as it was; so
// does an empty value, which some engines report as "more data" of size 0.
template <typename Read>
UINT ReadSizedText(std::wstring& text, Read read) {
    wchar_t empty[1] = L"";
    DWORD size = 0;
    const UINT status = read(empty, &size);
    if (status == ERROR_MORE_DATA && size == 0) {
        return ERROR_SUCCESS;
    }
    if (status != ERROR_MORE_DATA) {
        return status;
    }
    return ReadInto(text, size + 1, read);
}

// The text of a size-reporting call, empty when it cannot be read.
template <typename Read>
std::wstring ReadTextOrEmpty(Read read) {
    std::wstring text;
    return ReadSizedText(text, read) == ERROR_SUCCESS ? text : std::wstring();
}

// `status`, or "more data" when `text` would not have fitted a buffer of
// `capacity` characters with its terminator.
UINT WithinCapacity(UINT status, const std::wstring& text, std::size_t capacity);

// Session readers of any length. Each returns the installer status; an empty
// or unset value returns 0 and leaves the output as it was.
UINT GetPropertyString(MSIHANDLE session, const wchar_t* name, std::wstring& value);
UINT GetTargetPath(MSIHANDLE session, const wchar_t* directory, std::wstring& path);
// Field 0 of `record` formatted by the installer.
UINT FormatRecord(MSIHANDLE session, MSIHANDLE record, std::wstring& text);

// Reads a record field as text. Returns the installer status.
UINT GetRecordString(MSIHANDLE record, UINT field, std::wstring& value);
// Reads fields 1, 2, ... into `values` in order; the status of the first
// field that cannot be read ends the reading.
UINT GetRecordStrings(MSIHANDLE record, std::initializer_list<std::wstring*> values);

// A property of an installed product; empty when it cannot be read.
std::wstring GetProductInfo(const wchar_t* productCode, const wchar_t* property);

UINT SetProperty(MSIHANDLE session, const wchar_t* name, const wchar_t* value);

// The active database of the installation; asked for a second time when the
// first call yields no handle.
MsiHandle OpenActiveDatabase(MSIHANDLE session);

// An open database view; closed (and its handle released) when it goes away.
inline UINT CloseViewHandle(MSIHANDLE view) {
    MsiViewClose(view);
    return MsiCloseHandle(view);
}
using View = UniqueHandle<MSIHANDLE, CloseWith<&CloseViewHandle>>;

// Opens `query` on `database` and executes it. Returns the first failing
// installer status.
UINT ExecuteView(MSIHANDLE database, const wchar_t* query, View& view);
// The same on the active database of the installation.
UINT OpenView(MSIHANDLE session, const wchar_t* query, View& view);

// Calls `visit(record)` for each record `view` fetches while it returns 0.
// Returns 0 at the end of the records, the status of a fetch that fails, or
// the non-zero status `visit` returned.
template <typename Visit>
UINT ForEachRecord(MSIHANDLE view, Visit&& visit) {
    for (;;) {
        MsiHandle record;
        if (const UINT fetched = MsiViewFetch(view, record.put()); fetched != ERROR_SUCCESS) {
            return fetched == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : fetched;
        }
        if (const UINT status = visit(record.get()); status != ERROR_SUCCESS) {
            return status;
        }
    }
}

// A field of a posted record: a number, a text, or nothing (left empty).
inline void SetRecordField(MSIHANDLE record, UINT field, int value) {
    MsiRecordSetInteger(record, field, value);
}
inline void SetRecordField(MSIHANDLE record, UINT field, const wchar_t* text) {
    MsiRecordSetStringW(record, field, text);
}
inline void SetRecordField(MSIHANDLE /*record*/, UINT /*field*/, std::nullptr_t) {}

// Posts a record of `fields` (field 1 on) with the template `text` (none when
// null) as a message of `type`. Returns the installer's answer (IDCANCEL when
// the user asked to cancel).
template <typename... Fields>
int PostMessageRecord(MSIHANDLE session, INSTALLMESSAGE type, const wchar_t* text, Fields... fields) {
    MsiHandle record(MsiCreateRecord(sizeof...(fields)));
    if (text != nullptr) {
        MsiRecordSetStringW(record.get(), 0, text);
    }
    UINT field = 0;
    (SetRecordField(record.get(), ++field, fields), ...);
    return MsiProcessMessage(session, type, record.get());
}

// An information message whose template is `text`; when the template holds
// "[1]", field 1 carries `value`.
void ReportInfo(MSIHANDLE session, const wchar_t* text, int value = 0);

// An information message of exactly `line` (brackets in it are not formatted).
void ReportInfoLine(MSIHANDLE session, const std::wstring& line);

// Resets the progress bar and then advances it by `ticks`.
void ReportProgress(MSIHANDLE session, int ticks);

// Installer error 1923: the service `name` could not be installed.
void ReportServiceError(MSIHANDLE session, UINT code, const wchar_t* name);

// Package error 666 with two texts and a code.
void ReportActionError(MSIHANDLE session, const wchar_t* text1, const wchar_t* text2, UINT code);

// Reads "CustomActionData" as driver action data; field 6 only when
// `withServiceName`. Nothing when the property cannot be read or lacks a field.
std::optional<DriverActionData> ParseDriverActionData(MSIHANDLE session, bool withServiceName);

} // namespace setuputils
