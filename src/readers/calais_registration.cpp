#include "readers/calais_registration.h"

namespace setuputils {

// TODO: not yet built.
UINT ProcessCalaisRegitration(MSIHANDLE) {
    return ERROR_SUCCESS;
}

} // namespace setuputils
