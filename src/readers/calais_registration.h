// Registration of the provider's smart-card types with the system's
// smart-card subsystem, through temporary Registry and RemoveRegistry rows.
#pragma once

#include <windows.h>
#include <msi.h>

namespace setuputils {

// Run at the end of ProcessRegReaders, whose result it becomes.
UINT ProcessCalaisRegitration(MSIHANDLE session);

} // namespace setuputils
