// GetOldWLProductID (immediate): the same carrying over as GetOldRPProductID,
// for packages that schedule it under this name.
#include "exports.h"
#include "features/earlier_product_id.h"

extern "C" UINT WINAPI GetOldWLProductID(MSIHANDLE session) {
    return setuputils::CarryEarlierProductId(session, L"GetOldWLProductID");
}
