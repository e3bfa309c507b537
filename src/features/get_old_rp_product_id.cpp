// GetOldRPProductID (immediate): when PIDKEY is empty, carries the product
// identifier, user name and company of an installed earlier edition into
// PIDKEY, USERNAME and COMPANYNAME (the latter two only where empty). One
// information line says what was done; always 0.
#include "exports.h"
#include "features/earlier_product_id.h"

extern "C" UINT WINAPI GetOldRPProductID(MSIHANDLE session) {
    return setuputils::CarryEarlierProductId(session, L"GetOldRPProductID");
}
