// Fuzzes the registry path map and the driver action data parser with
// arbitrary UTF-16 input: the sanitizers catch any out-of-bounds access, and
// the parser is held to a plain split of its fields.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "frame/driver_action_data.h"
#include "registry/path_map.h"

namespace {

std::wstring WideInput(const std::uint8_t* data, std::size_t size) {
    std::wstring text;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        text.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
    }
    return text;
}

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Whenever fields 4 and 5 are not empty, parsing must agree with a plain split
// on the separator; asking for the service name changes nothing else.
void CheckDriverActionData(std::wstring_view text) {
    using namespace setuputils;
    std::vector<std::wstring_view> fields;
    for (std::size_t start = 0;;) {
        std::size_t end = std::min(text.find(kDriverDataSeparator, start), text.size());
        fields.push_back(text.substr(start, end - start));
        if (end == text.size()) {
            break;
        }
        start = end + 1;
    }
    auto with = ParseDriverActionDataText(text, true);
    auto without = ParseDriverActionDataText(text, false);
    Check(with.has_value() == without.has_value());
    const bool plain = fields.size() >= 5 && !fields[3].empty() && !fields[4].empty();
    if (!with) {
        Check(!plain);
        return;
    }
    Check(fields.size() >= 5 && !without->serviceName);
    Check(with->infPath == without->infPath && with->componentId == without->componentId &&
          with->flags == without->flags && with->progressTicks == without->progressTicks);
    if (!plain) {
        return;
    }
    std::wstring_view name = fields[1];
    if (auto bar = name.find(L'|'); bar != std::wstring_view::npos) {
        name.remove_prefix(bar + 1);
    }
    Check(with->infPath == std::wstring(fields[0]) + std::wstring(name));
    Check(with->componentId == fields[2]);
    Check(with->flags == ParseLeadingLong(fields[3]) && with->progressTicks == ParseLeadingLong(fields[4]));
    if (fields.size() > 5) {
        Check(with->serviceName == text.substr(static_cast<std::size_t>(fields[5].data() - text.data())));
    } else {
        Check(!with->serviceName);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace setuputils;
    const std::wstring input = WideInput(data, size);

    MappedKeyPath resolved;
    auto user = [](std::wstring& name) {
        name = L"S-1-5-21-0-0-0-1000";
        return kRegistryOk;
    };
    if (ResolveMappedPath(input, user, resolved) == kRegistryOk) {
        // The input's tail is kept, so a resolved path is never shorter than it
        // after the abbreviation; a per-user path always lies below the user's root.
        Check(!resolved.path.empty());
        Check(!resolved.perUser ||
              resolved.path.compare(0, resolved.userRoot.size(), resolved.userRoot) == 0);
        std::wstring path = resolved.path;
        RegistryStatus normalized = NormalizeKeyPath(path);
        Check(normalized == kRegistryBadArgument || path.size() <= kMostKeyPathChars);
    }
    std::wstring key;
    std::wstring value;
    if (SplitValuePath(input, key, value) == kRegistryOk) {
        Check(key.size() + 1 + value.size() == input.size());
    }

    CheckDriverActionData(input);
    return 0;
}
