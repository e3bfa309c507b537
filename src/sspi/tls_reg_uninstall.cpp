// TlsRegUninstall: takes the older product generation's TLS package out of
// the security authority's list.
#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "sspi/security_packages.h"

extern "C" UINT WINAPI TlsRegUninstall(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"TlsRegUninstall", []() -> UINT {
        setuputils::RegKey lsa = setuputils::OpenLsaKey();
        if (!lsa) {
            return ERROR_SUCCESS;
        }
        return setuputils::EditSecurityPackages(lsa.get(), setuputils::kOlderTlsPackage, false) ==
                       ERROR_SUCCESS
                   ? ERROR_SUCCESS
                   : ERROR_INSTALL_FAILURE;
    });
}
