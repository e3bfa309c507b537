#include "drivers/driver_packages_table.h"

#include <windows.h>
#include <msiquery.h>

#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {

bool HasDriverPackagesTable(MSIHANDLE session) {
    MsiHandle database = OpenActiveDatabase(session);
    return MsiDatabaseIsTablePersistentW(database.get(), kDriverPackagesTable) < MSICONDITION_NONE;
}

UINT GetComponentStates(MSIHANDLE session, const std::wstring& component, ComponentStates& states) {
    INSTALLSTATE installed = INSTALLSTATE_UNKNOWN;
    INSTALLSTATE action = INSTALLSTATE_UNKNOWN;
    UINT status = MsiGetComponentStateW(session, component.c_str(), &installed, &action);
    states.installed = installed;
    states.action = action;
    return status;
}

} // namespace setuputils
