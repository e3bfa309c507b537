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

UINT GetRecordStrings(MSIHANDLE record, std::initializer_list<std::wstring*> values) {
    UINT field = 1;
    for (std::wstring* value : values) {
        if (const UINT status = GetRecordString(record, field++, *value); status != ERROR_SUCCESS) {
            return status;
        }
    }
    return ERROR_SUCCESS;
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

UINT ExecuteView(MSIHANDLE database, const wchar_t* query, View& view) {
    const UINT status = MsiDatabaseOpenViewW(database, query, view.put());
    return status == ERROR_SUCCESS ? MsiViewExecute(view.get(), 0) : status;
}

UINT OpenView(MSIHANDLE session, const wchar_t* query, View& view) {
    return ExecuteView(OpenActiveDatabase(session).get(), query, view);
}

void ReportInfo(MSIHANDLE session, const wchar_t* text, int value) {
    if (wcsstr(text, L"[1]") != nullptr) {
        PostMessageRecord(session, kMessageInfo, text, value);
    } else {
        PostMessageRecord(session, kMessageInfo, text, nullptr);
    }
}

void ReportInfoLine(MSIHANDLE session, const std::wstring& line) {
    PostMessageRecord(session, kMessageInfo, L"[1]", line.c_str());
}

void ReportProgress(MSIHANDLE session, int ticks) {
    PostMessageRecord(session, kMessageProgress, nullptr, 1, 0, 0, 0);
    PostMessageRecord(session, kMessageProgress, nullptr, 2, ticks, 0, 0);
}

void ReportServiceError(MSIHANDLE session, UINT code, const wchar_t* name) {
    PostMessageRecord(session, kMessageError, nullptr, kErrorServiceInstall, name, static_cast<int>(code));
}

void ReportActionError(MSIHANDLE session, const wchar_t* text1, const wchar_t* text2, UINT code) {
    PostMessageRecord(session, kMessageError, nullptr, kErrorAction, text1, text2, static_cast<int>(code));
}

std::optional<DriverActionData> ParseDriverActionData(MSIHANDLE session, bool withServiceName) {
    std::wstring text;
    if (GetPropertyString(session, L"CustomActionData", text) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return ParseDriverActionDataText(text, withServiceName);
}

} // namespace setuputils
