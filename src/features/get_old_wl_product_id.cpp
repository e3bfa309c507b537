// GetOldWLProductID: in the package's design it carries the licence product identifier of an earlier
// installation forward. Licence data belongs to the provider's licensing component, which does that work
// itself; the entry is kept so that packages scheduling it still load and run. It changes nothing and
// succeeds.
#include "exports.h"

extern "C" UINT WINAPI GetOldWLProductID(MSIHANDLE /*session*/) {
    return ERROR_SUCCESS;
}
