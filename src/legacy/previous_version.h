// Removal of the previous product generation: its setup program run silently
// with the response file the package carries, the result read from its log,
// and the system's pending file renames kept across the run.
#pragma once

#include <string>

#include <windows.h>
#include <msi.h>

namespace setuputils {

// What sets the two removal actions apart.
struct PreviousComponent {
    const wchar_t* action;          // the entry point, named in its reports
    const wchar_t* property;        // the old product's uninstall command
    const wchar_t* propertyFailure; // reported when that property cannot be read
    const wchar_t* name;            // "csp" or "tls": names the Binary row and the temporary files
    const wchar_t* failure;         // reported when the removal fails
    bool returnsRemovalCode;        // fails with the removal's own code rather than 1603
};

// The body and exception firewall of both actions: the uninstall command from
// the component's property, then the removal. 0, 14, the property's error, or
// the failure.
UINT RemovePreviousComponent(MSIHANDLE session, const PreviousComponent& component) noexcept;

} // namespace setuputils
