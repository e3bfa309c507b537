#include "rng/random_seed.h"

#include <cstdint>
#include <optional>
#include <vector>

#include "frame/handles.h"
#include "registry/path_map.h"
#include "registry/registry_library.h"
#include "rng/seeding_rules.h"

namespace setuputils {
namespace {

constexpr wchar_t kRandomBelowUser[] = L"\\Random";
constexpr wchar_t kSeedValue[] = L"RootRandomSeed";
constexpr wchar_t kSeedFlagsValue[] = L"RootRandomSeedFlags";
constexpr wchar_t kCurrentUserSeed[] = L"\\local\\Random\\RootRandomSeed";
constexpr wchar_t kCurrentUserSeedFlags[] = L"\\local\\Random\\RootRandomSeedFlags";

constexpr wchar_t kPatchesKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\NvnPatches";
constexpr wchar_t kAdvapiPatchKey[] = L"ADVAPI32";
constexpr wchar_t kImageValue[] = L"Image Dll";
constexpr wchar_t kPatchValue[] = L"Patch Dll64";
constexpr char kPatchEntry[] = "NvnDllPatch";
constexpr DWORD kPatchSettingBytes = 520;

// The patch entry takes nothing; nonzero means the image is patched.
using PatchEntry = BOOL(WINAPI*)();

// The flags word as a read into four bytes would see it; none when the value
// is missing or longer.
std::optional<SeedFlags> ReadSeedFlags(HKEY key) {
    SeedFlags flags;
    DWORD size = sizeof(flags.value);
    DWORD type = REG_NONE;
    if (RegQueryValueExW(key, kSeedFlagsValue, nullptr, &type, reinterpret_cast<BYTE*>(&flags.value),
                         &size) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    flags.type = type;
    return flags;
}

RegistryStatus ReadCurrentUserSeed() {
    RegistryValue seed;
    const RegistryStatus status = GetMappedValue(kCurrentUserSeed, seed);
    return status != kRegistryOk ? status : SeedTypeStatus(seed.type);
}

std::optional<SeedFlags> ReadCurrentUserSeedFlags() {
    RegistryValue flags;
    if (GetMappedValue(kCurrentUserSeedFlags, flags) != kRegistryOk) {
        return std::nullopt;
    }
    return SeedFlagsFromData(flags.type, flags.data);
}

// A setting of the patch as text, whatever its stored type; the buffer keeps
// one character more than it reads, so the text always ends.
bool ReadPatchSetting(HKEY key, const wchar_t* name,
                      wchar_t (&text)[kPatchSettingBytes / sizeof(wchar_t) + 1]) {
    DWORD size = kPatchSettingBytes;
    return RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &size) ==
           ERROR_SUCCESS;
}

// Loads the patch module and lets it patch the image; frees it when it fails.
HMODULE LoadPatch(const wchar_t* path) {
    HMODULE patch = LoadLibraryW(path);
    if (patch == nullptr) {
        return nullptr;
    }
    auto entry = reinterpret_cast<PatchEntry>(reinterpret_cast<void*>(GetProcAddress(patch, kPatchEntry)));
    if (entry == nullptr || entry() == FALSE) {
        FreeLibrary(patch);
        return nullptr;
    }
    return patch;
}

} // namespace

LSTATUS ReadRootRandomSeed(HKEY key) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    if (const LSTATUS status = RegQueryValueExW(key, kSeedValue, nullptr, &type, nullptr, &size);
        status != ERROR_SUCCESS) {
        return status;
    }
    std::vector<BYTE> seed(size + 1);
    if (const LSTATUS status = RegQueryValueExW(key, kSeedValue, nullptr, &type, seed.data(), &size);
        status != ERROR_SUCCESS) {
        return status;
    }
    return static_cast<LSTATUS>(SeedTypeStatus(type));
}

bool UserNeedsSeeding(const std::wstring& sid) {
    const std::wstring path = kUserSettingsRoot + sid + kRandomBelowUser;
    RegKey random;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE, random.put()) !=
               ERROR_SUCCESS ||
           !IsSeeded(static_cast<std::uint32_t>(ReadRootRandomSeed(random.get())),
                     ReadSeedFlags(random.get()));
}

bool IsCurrentUserSeeded() {
    return IsSeeded(ReadCurrentUserSeed(), ReadCurrentUserSeedFlags());
}

HMODULE ApplyLegacyAdvapiPatch() {
    RegKey patches;
    RegKey advapi;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kPatchesKey, 0, KEY_QUERY_VALUE, patches.put()) != ERROR_SUCCESS ||
        RegOpenKeyExW(patches.get(), kAdvapiPatchKey, 0, KEY_QUERY_VALUE, advapi.put()) != ERROR_SUCCESS) {
        return nullptr;
    }
    wchar_t image[kPatchSettingBytes / sizeof(wchar_t) + 1] = {};
    wchar_t patch[kPatchSettingBytes / sizeof(wchar_t) + 1] = {};
    if (!ReadPatchSetting(advapi.get(), kImageValue, image) ||
        !ReadPatchSetting(advapi.get(), kPatchValue, patch)) {
        return nullptr;
    }
    // The image is never freed: it is what the patch changes.
    if (GetModuleHandleW(patch) != nullptr || LoadLibraryW(image) == nullptr) {
        return nullptr;
    }
    return LoadPatch(patch);
}

void ApplyLegacyAdvapiPatchOnce() {
    static bool attempted = false;
    if (!attempted) {
        attempted = true;
        ApplyLegacyAdvapiPatch();
    }
}

} // namespace setuputils
