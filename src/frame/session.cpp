#include "frame/session.h"

#include <cwchar>

namespace setuputils {

UINT WithinCapacity(UINT status, const std::wstring& text, std::size_t capacity) {
    return status == ERROR_SUCCESS && text.size() >= capacity ? static_cast<UINT>(ERROR_MORE_DATA) : status;
}

UINT GetPropertyString(MSIHANDLE session, const wchar_t* name, std::wstring& value) {
    return ReadSizedText(
        value, [&](wchar_t* buffer, DWORD* size) { return MsiGetPropertyW(session, name, buffer, size); });
}

UINT GetTargetPath(MSIHANDLE session, const wchar_t* directory, std::wstring& path) {
    return ReadSizedText(path, [&](wchar_t* buffer, DWORD* size) {
        return MsiGetTargetPathW(session, directory, buffer, size);
    });
}

UINT FormatRecord(MSIHANDLE session, MSIHANDLE record, std::wstring& text) {
    return ReadSizedText(
        text, [&](wchar_t* buffer, DWORD* size) { return MsiFormatRecordW(session, record, buffer, size); });
}

UINT GetRecordString(MSIHANDLE record, UINT field, std::wstring& value) {
    auto read = [&](wchar_t* buffer, DWORD* size) {
        return MsiRecordGetStringW(record, field, buffer, size);
    };
    const UINT status = ReadInto(value, MsiRecordDataSize(record, field) + 1, read);
    // The data size of an integer field is that of the integer, not of its text.
    return status == ERROR_MORE_DATA ? ReadSizedText(value, read) : status;
}

std::wstring GetProductInfo(const wchar_t* productCode, const wchar_t* property) {
    return ReadTextOrEmpty([&](wchar_t* buffer, DWORD* size) {
        return MsiGetProductInfoW(productCode, property, buffer, size);
    });
}

UINT SetProperty(MSIHANDLE session, const wchar_t* name, const wchar_t* value) {
    return MsiSetPropertyW(session, name, value);
}

MsiHandle OpenActiveDatabase(MSIHANDLE session) {
    MSIHANDLE database = MsiGetActiveDatabase(session);
    if (database == 0) {
        database = MsiGetActiveDatabase(session);
    }
    return MsiHandle(database);
}

void View::Close() {
    if (handle_) {
        MsiViewClose(handle_.get());
        handle_.reset();
    }
}

UINT OpenView(MSIHANDLE session, const wchar_t* query, View& view) {
    MsiHandle database = OpenActiveDatabase(session);
    return MsiDatabaseOpenViewW(database.get(), query, view.put());
}

void CloseView(View& view) {
    view.Close();
}

void ReportInfo(MSIHANDLE session, const wchar_t* text, int value) {
    MsiHandle record(MsiCreateRecord(1));
    MsiRecordSetStringW(record.get(), 0, text);
    if (wcsstr(text, L"[1]") != nullptr) {
        MsiRecordSetInteger(record.get(), 1, value);
    }
    MsiProcessMessage(session, kMessageInfo, record.get());
}

void ReportInfoLine(MSIHANDLE session, const std::wstring& line) {
    MsiHandle record(MsiCreateRecord(1));
    MsiRecordSetStringW(record.get(), 0, L"[1]");
    MsiRecordSetStringW(record.get(), 1, line.c_str());
    MsiProcessMessage(session, kMessageInfo, record.get());
}

void ReportProgress(MSIHANDLE session, int ticks) {
    MsiHandle record(MsiCreateRecord(4));
    MsiRecordSetInteger(record.get(), 1, 1);
    MsiRecordSetInteger(record.get(), 2, 0);
    MsiRecordSetInteger(record.get(), 3, 0);
    MsiRecordSetInteger(record.get(), 4, 0);
    MsiProcessMessage(session, kMessageProgress, record.get());
    MsiRecordSetInteger(record.get(), 1, 2);
    MsiRecordSetInteger(record.get(), 2, ticks);
    MsiProcessMessage(session, kMessageProgress, record.get());
}

void ReportServiceError(MSIHANDLE session, UINT code, const wchar_t* name) {
    MsiHandle record(MsiCreateRecord(3));
    MsiRecordSetInteger(record.get(), 1, kErrorServiceInstall);
    MsiRecordSetStringW(record.get(), 2, name);
    MsiRecordSetInteger(record.get(), 3, static_cast<int>(code));
    MsiProcessMessage(session, kMessageError, record.get());
}

void ReportActionError(MSIHANDLE session, const wchar_t* text1, const wchar_t* text2, UINT code) {
    MsiHandle record(MsiCreateRecord(4));
    MsiRecordSetInteger(record.get(), 1, kErrorAction);
    MsiRecordSetStringW(record.get(), 2, text1);
    MsiRecordSetStringW(record.get(), 3, text2);
    MsiRecordSetInteger(record.get(), 4, static_cast<int>(code));
    MsiProcessMessage(session, kMessageError, record.get());
}

std::optional<DriverActionData> ParseDriverActionData(MSIHANDLE session, bool withServiceName) {
    std::wstring text;
    if (GetPropertyString(session, L"CustomActionData", text) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return ParseDriverActionDataText(text, withServiceName);
}

} // namespace setuputils
