// Runs the body of an exported action so that no exception leaves the library.
#pragma once

#include <type_traits>

#include <windows.h>
#include <msi.h>

namespace setuputils {

// Reports an exception that stopped `action` as an information message.
void ReportActionException(MSIHANDLE session, const wchar_t* action) noexcept;

// Calls `body` with the installation handle, or with nothing when it takes none.
template <typename Body>
decltype(auto) CallBody(Body& body, MSIHANDLE session) {
    if constexpr (std::is_invocable_v<Body&, MSIHANDLE>) {
        return body(session);
    } else {
        return body();
    }
}

// The body's status, or 1603 after reporting an exception it threw.
template <typename Body>
UINT GuardAction(MSIHANDLE session, const wchar_t* action, Body&& body) noexcept {
    try {
        return CallBody(body, session);
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
        CallBody(body, session);
        return static_cast<UINT>(ERROR_SUCCESS);
    });
    return ERROR_SUCCESS;
}

} // namespace setuputils
