// The inputs of the seeding actions taken apart, and the rule that says
// whether a user's random seed has been initialised.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace setuputils {

// The RunOnce entry name when the action's data names none.
inline constexpr wchar_t kDefaultRunOnceEntry[] = L"InstallCSP";

// Registry value types and the status of a seed of the wrong type, as the
// system numbers them.
inline constexpr std::uint32_t kBinaryValueType = 3;  // REG_BINARY
inline constexpr std::uint32_t kDwordValueType = 4;   // REG_DWORD
inline constexpr std::uint32_t kSeedOfWrongType = 13; // ERROR_INVALID_DATA

// The bit of "RootRandomSeedFlags" that says the seed is initialised.
inline constexpr std::uint32_t kSeedInitialisedFlag = 0x2;

// "entry/command": the text before the first "/" names the RunOnce entry,
// everything after it (later slashes included) is the command. Without a "/",
// or with nothing before it, the entry has the default name.
struct RunOnceRequest {
    std::wstring entryName = kDefaultRunOnceEntry;
    std::wstring command;
};
RunOnceRequest SplitRunOnceRequest(std::wstring_view data);

// "caption/window title/message": the first "/" ends the caption, the second
// the title of the installer dialog that owns the warning; the rest is the
// message. Fields that are not there stay empty, and the message is always
// the last part.
struct SeedingWarning {
    std::wstring caption;
    std::wstring ownerTitle;
    std::wstring message;
};
SeedingWarning SplitSeedingWarning(std::wstring_view data);

// The status of reading a seed value of `type`: 0 for binary data, 13 otherwise.
std::uint32_t SeedTypeStatus(std::uint32_t type);

// "RootRandomSeedFlags" as read into a four-byte word.
struct SeedFlags {
    std::uint32_t type = 0;
    std::uint32_t value = 0;
};

// The flags word of a value's data as a read into four zeroed bytes would
// leave it; none when the data do not fit.
std::optional<SeedFlags> SeedFlagsFromData(std::uint32_t type, std::span<const std::uint8_t> data);

// Seeded: the seed was read (status 0) and the flags are a DWORD with the
// initialised bit set. No flags, flags of another type or the bit clear:
// the user still needs seeding.
bool IsSeeded(std::uint32_t seedStatus, const std::optional<SeedFlags>& flags);

} // namespace setuputils
