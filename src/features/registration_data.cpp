#include "features/registration_data.h"

namespace setuputils {
namespace {

constexpr wchar_t kSeparator = L'|';

// The text up to the next separator (or the end); `rest` keeps what follows it.
std::wstring TakeField(std::wstring_view& rest) {
    const std::size_t end = rest.find(kSeparator);
    std::wstring field(rest.substr(0, end));
    rest = end == std::wstring_view::npos ? std::wstring_view() : rest.substr(end + 1);
    return field;
}

} // namespace

Registration ParseRegistrationData(std::wstring_view data) {
    Registration registration;
    registration.productId = TakeField(data);
    registration.company = TakeField(data);
    registration.userName = std::wstring(data);
    return registration;
}

} // namespace setuputils
