#include "features/registration_data.h"

#include "frame/text_fields.h"

namespace setuputils {
namespace {

constexpr wchar_t kSeparator = L'|';

} // namespace

Registration ParseRegistrationData(std::wstring_view data) {
    Registration registration;
    registration.productId = TakeField(data, kSeparator);
    registration.company = TakeField(data, kSeparator);
    registration.userName = std::wstring(data);
    return registration;
}

} // namespace setuputils
