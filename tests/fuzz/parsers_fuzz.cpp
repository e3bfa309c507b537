// Fuzzes every text the actions take apart, on the same input: the field
// splitters of the services', the registration's and the seeding's data, a
// protected service's path, the security packages' list edits, the old
// uninstaller's log and the pending renames kept across its run, and the
// default providers' list. The sanitizers catch out-of-bounds access; the
// checks hold each one to what its callers rely on.
#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <cstdlib>
#include <string>
#include <string_view>

#include "features/registration_data.h"
#include "legacy/uninstall_rules.h"
#include "provider/default_provider_rules.h"
#include "rng/seeding_rules.h"
#include "services/service_fields.h"
#include "sspi/package_list.h"

namespace {

using namespace setuputils;

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

bool SameName(const std::wstring& entry, const std::wstring& name) {
    return entry == name;
}

// Inserting leaves the name in the list once, removing leaves it out; the rest keep their order.
void CheckPackageList(std::wstring_view text) {
    const PackageList entries = SplitPackageList(text);
    Check(JoinPackageList(entries).substr(0, text.size()) == text);
    const auto named =
        std::find_if(entries.begin(), entries.end(), [](auto& entry) { return !entry.empty(); });
    const std::wstring name = named != entries.end() ? *named : L"nvsspap"; // package names are never empty
    for (bool insert : {true, false}) {
        const PackageList edited = EditPackageList(entries, name, insert, SameName);
        Check(std::count(edited.begin(), edited.end(), name) == (insert ? 1 : 0));
        PackageList others = entries, editedOthers = edited;
        std::erase(others, name);
        std::erase(editedOthers, name);
        Check(others == editedOthers);
    }
}

void CheckPendingRenames(std::wstring_view text, std::size_t bytes) {
    const PendingRenames kept = KeepPendingRenames(text, bytes);
    Check(kept.status == 0
              ? kept.operations.size() + 1 == text.size()
              : kept.status == kMalformedPendingRenames && kept.operations.find(L'\0') == std::wstring::npos);
    Check(MergePendingRenames(kept.operations, text) == kept.operations + std::wstring(text));
}

// Fields joined by their separator give the text back, with empty fields for those it lacks.
void CheckJoined(std::wstring_view text, wchar_t separator, std::initializer_list<std::wstring> fields) {
    std::wstring joined;
    for (const std::wstring& field : fields) {
        joined.append(&field != fields.begin() ? 1 : 0, separator).append(field);
    }
    Check(joined.starts_with(text) &&
          (std::count(text.begin(), text.end(), separator) + 1 < std::ssize(fields) || joined == text));
}

void CheckSplitters(std::wstring_view text) {
    const CreateServiceData service = SplitCreateServiceData(text);
    CheckJoined(text, L'/', {service.name, service.displayName, service.nonInteractive, service.group});
    const RemoveServiceData removal = SplitRemoveServiceData(text);
    CheckJoined(text, L'/', {removal.name, removal.group});
    const Registration registration = ParseRegistrationData(text);
    CheckJoined(text, L'|', {registration.productId, registration.company, registration.userName});
    const std::size_t slash = text.find(L'/');
    Check(SplitRunOnceRequest(text).command == text.substr(slash == text.npos ? 0 : slash + 1));
    SplitSeedingWarning(text);
    if (const auto unprotected = UnprotectedConfiguration(text, 0x20)) {
        Check(text.starts_with(unprotected->binaryPath) && unprotected->type == 0x10);
    }
    for (const PackageProvider& provider : ParseProviderList(text)) {
        Check(provider.name.find(L'/') == std::wstring::npos);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::wstring text;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        text.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
    }
    CheckPackageList(text);
    CheckPendingRenames(text, size);
    CheckSplitters(text);
    const std::string_view log(reinterpret_cast<const char*>(data), size);
    if (FindResultCode(log)) {
        Check(log.substr(0, log.find('\0')).find("ResultCode=") != std::string_view::npos);
    }
    SeedFlagsFromData(size > 0 ? data[0] : 0, {data, size});
    return 0;
}
