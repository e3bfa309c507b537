// Carries the product identifier and user information of an installed
// earlier edition into this installation.
#pragma once

#include <windows.h>
#include <msi.h>

namespace setuputils {

// When PIDKEY is empty, takes the first installed earlier edition that has a
// registered product identifier and sets PIDKEY, and USERNAME and COMPANYNAME
// where they are empty, from its registration. Logs one information line of
// what it did; 0 whether or not there was anything to carry.
UINT CarryEarlierProductId(MSIHANDLE session, const wchar_t* action);

} // namespace setuputils
