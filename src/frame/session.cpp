#include "frame/session.h"

#include <cwchar>

namespace setuputils {
namespace {

// Both string reads follow one protocol: the reported length plus one, then the read.
template <typename Read>
UINT ReadInto(std::wstring& value, DWORD size, Read read) {
    std::wstring buffer(size, L'\0');
    UINT status = read(buffer.data(), &size);
    buffer.resize(wcsnlen(buffer.c_str(), buffer.size()));
    value = std::move(buffer);
    return status;
}

} // namespace

UINT GetPropertyString(MSIHANDLE session, const wchar_t* name, std::wstring& value) {
    wchar_t empty[1] = L"";
    DWORD size = 0;
    UINT status = MsiGetPropertyW(session, name, empty, &size);
    if (status == ERROR_MORE_DATA && size == 0) {
        // Some engines find no room for the terminator of an empty value; it is empty all the same.
        return ERROR_SUCCESS;
    }
    if (status != ERROR_MORE_DATA) {
        return status;
    }
    return ReadInto(value, size + 1, [&](wchar_t* buffer, DWORD* length) {
        return MsiGetPropertyW(session, name, buffer, length);
    });
}

UINT GetRecordString(MSIHANDLE record, UINT field, std::wstring& value) {
    auto read = [&](wchar_t* buffer, DWORD* length) {
        return MsiRecordGetStringW(record, field, buffer, length);
    };
    DWORD size = MsiRecordDataSize(record, field);
    UINT status = ReadInto(value, size + 1, read);
    if (status == ERROR_MORE_DATA) {
        // The data size of an integer field is that of the integer, not of its text.
        DWORD needed = 0;
        wchar_t empty[1] = L"";
        MsiRecordGetStringW(record, field, empty, &needed);
        status = ReadInto(value, needed + 1, read);
    }
    return status;
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
