// Hiding the provider feature "nvcspr" from the feature tree of the package.
#pragma once

#include <windows.h>
#include <msi.h>

namespace setuputils {

// Puts "nvcspr" back into the Feature table as a temporary row with Display 0.
// Its first child feature is taken out beforehand and put back afterwards, also
// as a temporary row. Stops quietly at the first failing installer call.
void HideProviderFeature(MSIHANDLE session);

} // namespace setuputils
