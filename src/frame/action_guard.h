// Runs the body of an exported action so that no exception leaves the library.
#pragma once

#include <windows.h>
#include <msi.h>

namespace setuputils {

// Reports an exception that stopped `action` as an information message.
void ReportActionException(MSIHANDLE session, const wchar_t* action) noexcept;

// The body's status, or 1603 after reporting an exception it threw.
template <typename Body>
UINT GuardAction(MSIHANDLE session, const wchar_t* action, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        ReportActionException(session, action);
        return ERROR_INSTALL_FAILURE;
    }
}

// For actions that succeed whatever happens: runs `body` (returning nothing)
// and returns 0, after reporting an exception it threw.
template <typename Body>
UINT RunActionThatNeverFails(MSIHANDLE session, const wchar_t* action, Body&& body) noexcept {
    GuardAction(session, action, [&] {
        body();
        return static_cast<UINT>(ERROR_SUCCESS);
    });
    return ERROR_SUCCESS;
}

} // namespace setuputils
