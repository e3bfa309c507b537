#include "registry/registry_library.h"

#include <aclapi.h>
#include <sddl.h>

#include "frame/registry_values.h"
#include "profiles/access_rights.h"

namespace setuputils {
namespace {

constexpr DWORD kUserNameChars = 128;
constexpr DWORD kLongestSidTextChars = 187;
constexpr wchar_t kValueInprocServer[] = L"InprocServer32";

HKEY RootKey(RegistryRootKey root) {
    return root == RegistryRootKey::ClassesRoot ? HKEY_CLASSES_ROOT : HKEY_LOCAL_MACHINE;
}

// The thread's token, opened as the thread and then as the process; the
// process token when the thread has none.
DWORD OpenCallerToken(TokenHandle& token) {
    if (OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, FALSE, token.put()) ||
        OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, token.put())) {
        return ERROR_SUCCESS;
    }
    DWORD error = GetLastError();
    if (error != ERROR_NO_TOKEN) {
        return error;
    }
    return OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put()) ? ERROR_SUCCESS : GetLastError();
}

// The SID text of the caller's user into `buffer` of `size` characters; 122
// with the size needed when it does not fit.
DWORD UserSidText(wchar_t* buffer, DWORD& size) {
    TokenHandle token;
    if (DWORD error = OpenCallerToken(token); error != ERROR_SUCCESS) {
        return error;
    }
    DWORD length = 0;
    GetTokenInformation(token.get(), TokenUser, nullptr, 0, &length);
    std::vector<BYTE> user(length);
    if (length == 0 || !GetTokenInformation(token.get(), TokenUser, user.data(), length, &length)) {
        return GetLastError();
    }
    LocalMemory text;
    if (!ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid,
                                reinterpret_cast<LPWSTR*>(text.put()))) {
        return GetLastError();
    }
    const auto* sid = static_cast<const wchar_t*>(text.get());
    const DWORD needed = static_cast<DWORD>(wcslen(sid)) + 1;
    if (needed > size) {
        size = kLongestSidTextChars;
        return ERROR_INSUFFICIENT_BUFFER;
    }
    wcscpy_s(buffer, size, sid);
    return ERROR_SUCCESS;
}

// Opens the key, or with kRegCreate creates it when missing; `attributes`
// apply to a key it creates.
RegistryStatus OpenPlain(HKEY root, const std::wstring& path, RegistryFlags flags, MappedKey& opened,
                         SECURITY_ATTRIBUTES* attributes = nullptr) {
    const REGSAM access = TranslateRegistryFlags(flags);
    const LSTATUS status = (flags & kRegCreate) == 0
                               ? RegOpenKeyExW(root, path.c_str(), 0, access, opened.key.put())
                               : RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, access, attributes,
                                                 opened.key.put(), nullptr);
    if (status == ERROR_SUCCESS) {
        opened.flags = flags;
    }
    return MapRegistryStatus(status);
}

RegistryStatus CreateWithAccessList(HKEY root, const std::wstring& path, RegistryFlags flags,
                                    MappedKey& opened) {
    LocalMemory acl = BuildSettingsKeyAcl();
    SECURITY_DESCRIPTOR descriptor{};
    if (!acl || !InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&descriptor, TRUE, static_cast<PACL>(acl.get()), FALSE) ||
        !SetSecurityDescriptorControl(&descriptor, SE_DACL_PROTECTED | SE_DACL_AUTO_INHERIT_REQ,
                                      SE_DACL_PROTECTED | SE_DACL_AUTO_INHERIT_REQ)) {
        return kRegistryFailure;
    }
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, FALSE};
    const RegistryStatus status = OpenPlain(root, path, flags, opened, &attributes);
    if (status == kRegistryOk) {
        // An existing key keeps its old list unless it is set again.
        SetSecurityInfo(opened.key.get(), SE_REGISTRY_KEY,
                        DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr, nullptr,
                        static_cast<PACL>(acl.get()), nullptr);
    }
    return status;
}

RegistryStatus OpenOrCreate(HKEY root, const std::wstring& path, RegistryFlags flags, MappedKey& opened) {
    const bool protectedCreate = (flags & kRegCreate) != 0 && (flags & kRegProtectedCreate) != 0;
    return protectedCreate ? CreateWithAccessList(root, path, flags, opened)
                           : OpenPlain(root, path, flags, opened);
}

// Creates a per-user key one component at a time from the user's root, so
// that the root gets its access list when it is new.
RegistryStatus CreatePerUser(const MappedKeyPath& resolved, const std::wstring& path, RegistryFlags flags,
                             MappedKey& opened) {
    if (OpenPlain(HKEY_LOCAL_MACHINE, path, flags & ~(kRegCreate | kRegProtectedCreate), opened) ==
        kRegistryOk) {
        opened.flags = flags;
        return kRegistryOk;
    }
    {
        MappedKey root;
        RegistryStatus status = OpenPlain(HKEY_LOCAL_MACHINE, resolved.userRoot, kRegQueryValue, root);
        if (status == kRegistryNotFound) {
            status = OpenOrCreate(HKEY_LOCAL_MACHINE, resolved.userRoot, kRegCreateUserRoot, root);
        }
        if (status != kRegistryOk) {
            return status;
        }
    }
    std::wstring current = resolved.userRoot;
    RegistryStatus status = kRegistryOk;
    bool openedAny = false;
    for (std::size_t start = 0; status == kRegistryOk && start < resolved.remainder.size();) {
        std::size_t end = resolved.remainder.find(L'\\', start);
        if (end == std::wstring::npos) {
            end = resolved.remainder.size();
        }
        if (end > start) {
            current.append(L"\\").append(resolved.remainder, start, end - start);
            status = OpenOrCreate(HKEY_LOCAL_MACHINE, current, flags, opened);
            openedAny = true;
        }
        start = end + 1;
    }
    // Nothing below the user's root: the root itself is the key.
    return openedAny ? status : OpenOrCreate(HKEY_LOCAL_MACHINE, current, flags, opened);
}

RegistryStatus OpenValueKey(std::wstring_view valuePath, RegistryFlags flags, MappedKey& opened,
                            std::wstring& valueName) {
    std::wstring keyPath;
    if (RegistryStatus status = SplitValuePath(valuePath, keyPath, valueName); status != kRegistryOk) {
        return status;
    }
    return OpenMappedKey(keyPath, flags, opened);
}

RegistryStatus ReadValue(HKEY key, const std::wstring& name, RegistryValue& value) {
    DWORD type = REG_NONE;
    DWORD size = 0;
    LSTATUS status = RegQueryValueExW(key, name.c_str(), nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS) {
        return MapRegistryStatus(status);
    }
    std::vector<std::uint8_t> data(size + sizeof(wchar_t));
    status = RegQueryValueExW(key, name.c_str(), nullptr, &type, data.data(), &size);
    if (status != ERROR_SUCCESS) {
        return MapRegistryStatus(status);
    }
    data.resize(size);
    value.data = std::move(data);
    value.name = name;
    value.type = type;
    return kRegistryOk;
}

// The value named exactly `name`, found by walking the key's values.
RegistryStatus FindValueByName(HKEY key, const std::wstring& name, RegistryValue& value) {
    const LSTATUS status =
        WalkKey(key, KeyEntries::Values, [&](const std::wstring& found) { return found != name; });
    return status == ERROR_SUCCESS ? ReadValue(key, name, value) : MapRegistryStatus(status);
}

} // namespace

RegistryStatus CurrentUserSidText(std::wstring& name) {
    std::wstring buffer(kUserNameChars, L'\0');
    DWORD size = kUserNameChars;
    DWORD error = UserSidText(buffer.data(), size);
    if (error == ERROR_INSUFFICIENT_BUFFER) {
        buffer.assign(size, L'\0');
        error = UserSidText(buffer.data(), size);
    }
    if (error == ERROR_CALL_NOT_IMPLEMENTED || error == ERROR_NO_TOKEN) {
        name = kDefaultUserName;
        return kRegistryOk;
    }
    if (error != ERROR_SUCCESS) {
        return error == ERROR_INSUFFICIENT_BUFFER ? kRegistryBufferTooSmall : kRegistryFailure;
    }
    buffer.resize(wcsnlen(buffer.c_str(), buffer.size()));
    name = std::move(buffer);
    return kRegistryOk;
}

RegistryStatus ResolveMappedPath(std::wstring_view path, MappedKeyPath& resolved) {
    return ResolveMappedPath(path, CurrentUserSidText, resolved);
}

RegistryStatus OpenMappedKey(std::wstring_view path, RegistryFlags flags, MappedKey& opened) {
    MappedKeyPath resolved;
    if (RegistryStatus status = ResolveMappedPath(path, resolved); status != kRegistryOk) {
        return status;
    }
    std::wstring realPath = resolved.path;
    if (RegistryStatus status = NormalizeKeyPath(realPath); status != kRegistryOk) {
        return status;
    }
    flags |= resolved.extraFlags;
    if (resolved.perUser && (flags & kRegCreate) != 0) {
        return CreatePerUser(resolved, realPath, flags, opened);
    }
    return OpenOrCreate(RootKey(resolved.root), realPath, flags, opened);
}

RegistryStatus GetMappedValue(std::wstring_view valuePath, RegistryValue& value) {
    MappedKey key;
    std::wstring name;
    if (RegistryStatus status = OpenValueKey(valuePath, kRegReadValues, key, name); status != kRegistryOk) {
        return status;
    }
    if (name == kValueInprocServer) {
        return FindValueByName(key.key.get(), name, value);
    }
    return ReadValue(key.key.get(), name, value);
}

RegistryStatus SetMappedBinaryValue(std::wstring_view valuePath, std::span<const std::uint8_t> data) {
    if (data.size() > 0xFFFFFFFFu) {
        return kRegistryBadArgument;
    }
    MappedKey key;
    std::wstring name;
    if (RegistryStatus status = OpenValueKey(valuePath, kRegWriteValues, key, name); status != kRegistryOk) {
        return status;
    }
    return MapRegistryStatus(RegSetValueExW(key.key.get(), name.c_str(), 0, REG_BINARY, data.data(),
                                            static_cast<DWORD>(data.size())));
}

RegistryStatus SetMappedStringValue(std::wstring_view valuePath, std::wstring_view text) {
    MappedKey key;
    std::wstring name;
    if (RegistryStatus status = OpenValueKey(valuePath, kRegWriteValues, key, name); status != kRegistryOk) {
        return status;
    }
    std::wstring value(text);
    return MapRegistryStatus(RegSetValueExW(key.key.get(), name.c_str(), 0, REG_SZ,
                                            reinterpret_cast<const BYTE*>(value.c_str()),
                                            static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
}

RegistryStatus MappedKeyEnumeration::Open(std::wstring_view path, bool subkeys) {
    subkeys_ = subkeys;
    index_ = 0;
    return OpenMappedKey(path, subkeys ? kRegEnumerateSubkeys : kRegReadValues, key_);
}

RegistryStatus MappedKeyEnumeration::Next(RegistryValue& entry) {
    if (!key_.key) {
        return kRegistryBadArgument;
    }
    RegistryValue found;
    std::wstring name;
    if (const LSTATUS status =
            EnumerateName(key_.key.get(), subkeys_ ? KeyEntries::Subkeys : KeyEntries::Values, index_, name);
        status != ERROR_SUCCESS) {
        return MapRegistryStatus(status);
    }
    if (subkeys_) {
        found.name = std::move(name);
    } else if (RegistryStatus read = ReadValue(key_.key.get(), name, found); read != kRegistryOk) {
        return read;
    }
    ++index_;
    entry = std::move(found);
    return kRegistryOk;
}

std::vector<std::wstring> MappedSubkeyNames(std::wstring_view path) {
    std::vector<std::wstring> names;
    MappedKeyEnumeration walk;
    RegistryValue entry;
    if (walk.Open(path, true) == kRegistryOk) {
        while (walk.Next(entry) == kRegistryOk) {
            names.push_back(std::move(entry.name));
        }
    }
    return names;
}

} // namespace setuputils
