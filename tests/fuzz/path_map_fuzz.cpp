// Fuzzes the registry path map and the driver action data parser with
// arbitrary UTF-16 input; the sanitizers catch any out-of-bounds access.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

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
        Check(!resolved.perUser || resolved.path.compare(0, resolved.userRoot.size(), resolved.userRoot) == 0);
        std::wstring path = resolved.path;
        RegistryStatus normalized = NormalizeKeyPath(path);
        Check(normalized == kRegistryBadArgument || path.size() <= kMostKeyPathChars);
    }
    std::wstring key;
    std::wstring value;
    if (SplitValuePath(input, key, value) == kRegistryOk) {
        Check(key.size() + 1 + value.size() == input.size());
    }

    auto parsed = ParseDriverActionDataText(input, true);
    Check(!parsed || parsed->componentId.find(kDriverDataSeparator) == std::wstring::npos);
    return 0;
}
