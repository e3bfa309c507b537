// NVRegisterUser: in the package's design it registers the user of the licence.
// Licence data belongs to the provider's licensing component, which does that
// work itself; the entry is kept so that packages scheduling it still load and
// run. It changes nothing and succeeds.
#include "exports.h"

extern "C" UINT WINAPI NVRegisterUser(MSIHANDLE /*session*/) {
    return ERROR_SUCCESS;
}
