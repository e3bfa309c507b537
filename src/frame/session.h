// Access to the running installation: properties, records, views, messages and progress.
#pragma once

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

// Reads a property. Returns the installer status; an empty or unset property
// returns 0 and leaves `value` as it was.
UINT GetPropertyString(MSIHANDLE session, const wchar_t* name, std::wstring& value);

// Reads a record field as text. Returns the installer status.
UINT GetRecordString(MSIHANDLE record, UINT field, std::wstring& value);

UINT SetProperty(MSIHANDLE session, const wchar_t* name, const wchar_t* value);

// The active database of the installation; asked for a second time when the
// first call yields no handle.
MsiHandle OpenActiveDatabase(MSIHANDLE session);

// An open database view; closed (and its handle released) when it goes away.
class View {
public:
    View() = default;
    View(View&&) = default;
    View& operator=(View&&) = default;
    ~View() { Close(); }

    MSIHANDLE get() const { return handle_.get(); }
    MSIHANDLE* put() {
        Close();
        return handle_.put();
    }
    void Close();

private:
    MsiHandle handle_;
};

// Opens `query` on the active database. Returns the installer status.
UINT OpenView(MSIHANDLE session, const wchar_t* query, View& view);
void CloseView(View& view);

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
