// The provider's abbreviated registry locations and the keys they stand for.
//
//   "\LICENSE\InprocServer32\{class id}..."  HKCR  WOW6432Node\CLSID\{class id}\InprocServer32...
//   "\GLOBAL"          HKLM  SOFTWARE\WOW6432Node\Norvane\Settings
//   "\POLICIES"        HKLM  SOFTWARE\Policies
//   "\SYSCONTROL"      HKLM  SYSTEM\CurrentControlSet\Control
//   "\APPPATH32"       HKLM  SOFTWARE\WOW6432Node\Norvane\Cryptography\CurrentVersion\AppPath
//   "\CONFIG64"        HKLM  SOFTWARE\Norvane\Cryptography\CurrentVersion
//   "\CONFIG"          HKLM  SOFTWARE\WOW6432Node\Norvane\Cryptography\CurrentVersion
//   "\APPPATH"         HKLM  SOFTWARE\Norvane\Cryptography\CurrentVersion\AppPath
//   "\CRYPTOGRAPHY64"  HKLM  SOFTWARE\Microsoft\Cryptography, in the 64-bit view
//   "\CRYPTOGRAPHY"    HKLM  SOFTWARE\WOW6432Node\Microsoft\Cryptography
//   anything else      HKLM  SOFTWARE\WOW6432Node\Norvane\Settings\Users\<user>, "\LOCAL" dropped
//
// Abbreviations are matched case-insensitively, in this order, over their own
// length only; the rest of the input is appended unchanged.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "registry/access_flags.h"
#include "registry/registry_status.h"

namespace setuputils {

enum class RegistryRootKey { ClassesRoot, LocalMachine };

// Longest real key path the library opens, and longest key-and-value text.
inline constexpr std::size_t kMostKeyPathChars = 255;
inline constexpr std::size_t kMostValuePathChars = 260;

// The per-user settings root, without the user's name.
inline constexpr wchar_t kUserSettingsRoot[] = L"SOFTWARE\\WOW6432Node\\Norvane\\Settings\\Users\\";
// The user's name when the system cannot tell who the user is.
inline constexpr wchar_t kDefaultUserName[] = L"Default";

struct MappedKeyPath {
    RegistryRootKey root = RegistryRootKey::LocalMachine;
    std::wstring path;            // the real path below the root
    RegistryFlags extraFlags = 0; // flags the location adds (the 64-bit view)
    bool perUser = false;
    std::wstring userRoot;  // per-user: the settings root of the user
    std::wstring remainder; // per-user: what follows the root ("\LOCAL" dropped)
};

// Gives the current user's name; asked only for per-user locations.
using CurrentUserName = std::function<RegistryStatus(std::wstring&)>;

// Resolves an abbreviated path. Returns 0, 87 for a missing input, 0x8009001D
// for a class-id form too short, or the status of `currentUser`.
RegistryStatus ResolveMappedPath(std::wstring_view input, const CurrentUserName& currentUser,
                                 MappedKeyPath& resolved);

// Checks a real key path before it is opened: 87 when longer than 255
// characters; a single trailing "\" is removed.
RegistryStatus NormalizeKeyPath(std::wstring& path);

// Splits "key\value" at its last "\". 87 when longer than 260 characters or
// without a "\".
RegistryStatus SplitValuePath(std::wstring_view input, std::wstring& keyPath, std::wstring& valueName);

} // namespace setuputils
