// The data NVRegisterUser records: "product identifier|company|user name".
#pragma once

#include <string>
#include <string_view>

namespace setuputils {

struct Registration {
    std::wstring productId;
    std::wstring company;
    std::wstring userName;

    // Every field empty: a request to remove what was recorded.
    bool empty() const { return productId.empty() && company.empty() && userName.empty(); }
};

// Splits at the first two bars: the product identifier and the company hold
// none, the user name is the verbatim rest. Missing fields are empty.
Registration ParseRegistrationData(std::wstring_view data);

} // namespace setuputils
