#include "rng/seeding_rules.h"

namespace setuputils {
namespace {

constexpr wchar_t kFieldSeparator = L'/';

// The text before the first separator, and the text after it; none when
// there is no separator.
std::optional<std::wstring_view> TakeField(std::wstring_view& rest) {
    const std::size_t at = rest.find(kFieldSeparator);
    if (at == std::wstring_view::npos) {
        return std::nullopt;
    }
    const std::wstring_view field = rest.substr(0, at);
    rest.remove_prefix(at + 1);
    return field;
}

} // namespace

RunOnceRequest SplitRunOnceRequest(std::wstring_view data) {
    RunOnceRequest request;
    // An empty name would be the RunOnce key's default value: the default name stands.
    if (const auto name = TakeField(data); name && !name->empty()) {
        request.entryName = *name;
    }
    request.command = data;
    return request;
}

SeedingWarning SplitSeedingWarning(std::wstring_view data) {
    SeedingWarning warning;
    if (const auto caption = TakeField(data)) {
        warning.caption = *caption;
        if (const auto title = TakeField(data)) {
            warning.ownerTitle = *title;
        }
    }
    warning.message = data;
    return warning;
}

std::uint32_t SeedTypeStatus(std::uint32_t type) {
    return type == kBinaryValueType ? 0 : kSeedOfWrongType;
}

std::optional<SeedFlags> SeedFlagsFromData(std::uint32_t type, std::span<const std::uint8_t> data) {
    SeedFlags flags;
    if (data.size() > sizeof(flags.value)) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < data.size(); ++i) {
        flags.value |= static_cast<std::uint32_t>(data[i]) << (8 * i);
    }
    flags.type = type;
    return flags;
}

bool IsSeeded(std::uint32_t seedStatus, const std::optional<SeedFlags>& flags) {
    return seedStatus == 0 && flags && flags->type == kDwordValueType &&
           (flags->value & kSeedInitialisedFlag) != 0;
}

} // namespace setuputils
