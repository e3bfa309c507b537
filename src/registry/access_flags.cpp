#include "registry/access_flags.h"

namespace setuputils {
namespace {

// Registry access rights, as numbers: this file also builds where no registry exists.
constexpr std::uint32_t kKeyQueryValue = 0x0001;
constexpr std::uint32_t kKeySetValue = 0x0002;
constexpr std::uint32_t kKeyCreateSubKey = 0x0004;
constexpr std::uint32_t kKeyEnumerateSubKeys = 0x0008;
constexpr std::uint32_t kKeyNotify = 0x0010;
constexpr std::uint32_t kKeyWow64_64Key = 0x0100;
constexpr std::uint32_t kDelete = 0x00010000;
constexpr std::uint32_t kReadControl = 0x00020000;
constexpr std::uint32_t kWriteDac = 0x00040000;
constexpr std::uint32_t kWriteOwner = 0x00080000;
constexpr std::uint32_t kAccessSystemSecurity = 0x01000000;

struct FlagRights {
    RegistryFlags flag;
    std::uint32_t rights;
};

constexpr FlagRights kTranslation[] = {
    {kRegQueryValue, kKeyQueryValue},
    {kRegSetValue, kKeySetValue},
    {kRegCreateSubKey, kKeyCreateSubKey},
    {kRegDelete, kDelete},
    {kRegReadControl, kReadControl},
    {kRegTakeOwnership, kWriteDac | kWriteOwner | kKeyEnumerateSubKeys},
    {kRegEnumerate, kKeyEnumerateSubKeys},
    {kRegNotify, kKeyNotify},
    {kReg64BitView, kKeyWow64_64Key},
    {kRegSystemSecurity, kAccessSystemSecurity},
};

} // namespace

std::uint32_t TranslateRegistryFlags(RegistryFlags flags) {
    std::uint32_t rights = 0;
    for (const FlagRights& entry : kTranslation) {
        if ((flags & entry.flag) != 0) {
            rights |= entry.rights;
        }
    }
    if (flags == kRegCreate) {
        rights |= kKeySetValue;
    }
    return rights;
}

} // namespace setuputils
