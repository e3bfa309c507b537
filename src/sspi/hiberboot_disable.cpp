// HiberbootDisable: turns Windows fast start-up off while the package is
// installed, saving the switch so that removal or rollback can restore it.
// Never fails.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "sspi/security_packages.h"

extern "C" UINT WINAPI HiberbootDisable(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"HiberbootDisable", setuputils::DisableFastStartup);
}
