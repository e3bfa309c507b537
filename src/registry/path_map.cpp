#include "registry/path_map.h"

namespace setuputils {
namespace {

struct Abbreviation {
    std::wstring_view text;
    RegistryRootKey root;
    std::wstring_view path;
    RegistryFlags extraFlags;
};

constexpr std::wstring_view kClassIdForm = L"\\LICENSE\\InprocServer32";
constexpr std::size_t kClassIdChars = 38;                    // a GUID in braces
constexpr std::size_t kClassIdFormChars = 1 + kClassIdChars; // a separator, then the class id
constexpr std::wstring_view kClassesPath = L"WOW6432Node\\CLSID\\";
constexpr std::wstring_view kInprocServer = L"\\InprocServer32";
constexpr std::wstring_view kLocal = L"\\LOCAL";

// In the order they are tried: a longer spelling before its prefix.
constexpr Abbreviation kAbbreviations[] = {
    {L"\\GLOBAL", RegistryRootKey::LocalMachine, L"SOFTWARE\\WOW6432Node\\Norvane\\Settings", 0},
    {L"\\POLICIES", RegistryRootKey::LocalMachine, L"SOFTWARE\\Policies", 0},
    {L"\\SYSCONTROL", RegistryRootKey::LocalMachine, L"SYSTEM\\CurrentControlSet\\Control", 0},
    {L"\\APPPATH32", RegistryRootKey::LocalMachine,
     L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion\\AppPath", 0},
    {L"\\CONFIG64", RegistryRootKey::LocalMachine, L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion", 0},
    {L"\\CONFIG", RegistryRootKey::LocalMachine,
     L"SOFTWARE\\WOW6432Node\\Norvane\\Cryptography\\CurrentVersion", 0},
    {L"\\APPPATH", RegistryRootKey::LocalMachine, L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\AppPath",
     0},
    {L"\\CRYPTOGRAPHY64", RegistryRootKey::LocalMachine, L"SOFTWARE\\Microsoft\\Cryptography", kReg64BitView},
    {L"\\CRYPTOGRAPHY", RegistryRootKey::LocalMachine, L"SOFTWARE\\WOW6432Node\\Microsoft\\Cryptography", 0},
};

wchar_t UpperAscii(wchar_t c) {
    return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

bool StartsWithNoCase(std::wstring_view text, std::wstring_view prefix) {
    if (text.size() < prefix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < prefix.size(); ++i) {
        if (UpperAscii(text[i]) != UpperAscii(prefix[i])) {
            return false;
        }
    }
    return true;
}

RegistryStatus ResolveClassIdForm(std::wstring_view input, MappedKeyPath& resolved) {
    std::wstring_view rest = input.substr(kClassIdForm.size());
    if (rest.size() < kClassIdFormChars) {
        return kRegistryFailure;
    }
    resolved.root = RegistryRootKey::ClassesRoot;
    resolved.path.assign(kClassesPath)
        .append(rest.substr(1, kClassIdChars))
        .append(kInprocServer)
        .append(rest.substr(kClassIdFormChars));
    return kRegistryOk;
}

RegistryStatus ResolvePerUser(std::wstring_view input, const CurrentUserName& currentUser,
                              MappedKeyPath& resolved) {
    std::wstring user;
    if (RegistryStatus status = currentUser(user); status != kRegistryOk) {
        return status;
    }
    resolved.perUser = true;
    resolved.userRoot = std::wstring(kUserSettingsRoot) + user;
    resolved.remainder.assign(StartsWithNoCase(input, kLocal) ? input.substr(kLocal.size()) : input);
    resolved.path = resolved.userRoot;
    if (!resolved.remainder.empty() && resolved.remainder.front() != L'\\') {
        resolved.path.push_back(L'\\');
    }
    resolved.path.append(resolved.remainder);
    return kRegistryOk;
}

} // namespace

RegistryStatus ResolveMappedPath(std::wstring_view input, const CurrentUserName& currentUser,
                                 MappedKeyPath& resolved) {
    resolved = MappedKeyPath();
    if (input.data() == nullptr || !currentUser) {
        return kRegistryBadArgument;
    }
    if (StartsWithNoCase(input, kClassIdForm)) {
        return ResolveClassIdForm(input, resolved);
    }
    for (const Abbreviation& abbreviation : kAbbreviations) {
        if (StartsWithNoCase(input, abbreviation.text)) {
            resolved.root = abbreviation.root;
            resolved.path.assign(abbreviation.path).append(input.substr(abbreviation.text.size()));
            resolved.extraFlags = abbreviation.extraFlags;
            return kRegistryOk;
        }
    }
    return ResolvePerUser(input, currentUser, resolved);
}

RegistryStatus NormalizeKeyPath(std::wstring& path) {
    if (path.size() > kMostKeyPathChars) {
        return kRegistryBadArgument;
    }
    if (!path.empty() && path.back() == L'\\') {
        path.pop_back();
    }
    return kRegistryOk;
}

RegistryStatus SplitValuePath(std::wstring_view input, std::wstring& keyPath, std::wstring& valueName) {
    if (input.data() == nullptr || input.size() > kMostValuePathChars) {
        return kRegistryBadArgument;
    }
    auto separator = input.rfind(L'\\');
    if (separator == std::wstring_view::npos) {
        return kRegistryBadArgument;
    }
    keyPath.assign(input.substr(0, separator));
    valueName.assign(input.substr(separator + 1));
    return kRegistryOk;
}

} // namespace setuputils
