// SslRegRollback, also exported as SslRegUninstall: takes the provider's TLS
// packages and default back out of the security authority's list and turns
// fast start-up on again if the package turned it off.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "sspi/security_packages.h"

extern "C" UINT WINAPI SslRegRollback(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"SslRegRollback", [] {
        return setuputils::RestoreSecurityProviders() == ERROR_SUCCESS ? ERROR_SUCCESS
                                                                       : ERROR_INSTALL_FAILURE;
    });
}
