#include "snapshot.h"

#include <algorithm>
#include <iterator>

#include "frame/handles.h"

namespace harness {
namespace {

using setuputils::RegKey;

std::wstring RootName(HKEY root) {
    if (root == HKEY_LOCAL_MACHINE) {
        return L"HKLM\\";
    }
    return root == HKEY_CURRENT_USER ? L"HKCU\\" : L"HKU\\";
}

std::wstring DataText(DWORD type, const std::vector<BYTE>& bytes) {
    if (type == REG_DWORD && bytes.size() == sizeof(DWORD)) {
        DWORD value = 0;
        memcpy(&value, bytes.data(), sizeof(value));
        return L"dword " + std::to_wstring(value);
    }
    if (type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ || type == REG_LINK) {
        std::wstring text(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t));
        std::replace(text.begin(), text.end(), L'\0', L'|');
        return L"type " + std::to_wstring(type) + L" '" + text + L"'";
    }
    std::wstring text = L"type " + std::to_wstring(type) + L" hex";
    constexpr wchar_t kDigits[] = L"0123456789abcdef";
    for (BYTE byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

void AddValues(HKEY key, const std::wstring& keyName, Snapshot& lines) {
    for (DWORD index = 0;; ++index) {
        wchar_t name[16384];
        DWORD nameChars = 16384;
        DWORD type = 0;
        DWORD size = 0;
        if (RegEnumValueW(key, index, name, &nameChars, nullptr, &type, nullptr, &size) != ERROR_SUCCESS) {
            return;
        }
        std::vector<BYTE> bytes(size);
        nameChars = 16384;
        RegEnumValueW(key, index, name, &nameChars, nullptr, &type, bytes.data(), &size);
        bytes.resize(size);
        lines.insert(keyName + L" [" + name + L"] " + DataText(type, bytes));
    }
}

void AddTree(HKEY root, const std::wstring& path, Snapshot& lines) {
    RegKey key;
    if (RegOpenKeyExW(root, path.c_str(), REG_OPTION_OPEN_LINK, KEY_READ, key.put()) != ERROR_SUCCESS) {
        return;
    }
    const std::wstring keyName = RootName(root) + path;
    lines.insert(keyName);
    AddValues(key.get(), keyName, lines);
    std::vector<std::wstring> subkeys;
    for (DWORD index = 0;; ++index) {
        wchar_t name[256];
        DWORD chars = 256;
        if (RegEnumKeyExW(key.get(), index, name, &chars, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            break;
        }
        subkeys.emplace_back(name, chars);
    }
    for (const std::wstring& subkey : subkeys) {
        AddTree(root, path + L"\\" + subkey, lines);
    }
}

} // namespace

Snapshot TakeSnapshot(const Watched& watched) {
    Snapshot lines;
    for (const auto& [root, path] : watched) {
        AddTree(root, path, lines);
    }
    return lines;
}

Lines SnapshotChanges(const Snapshot& before, const Snapshot& after) {
    Lines changes;
    std::set_difference(before.begin(), before.end(), after.begin(), after.end(),
                        std::back_inserter(changes));
    for (std::wstring& line : changes) {
        line.insert(0, L"- ");
    }
    const std::size_t gone = changes.size();
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(changes));
    std::for_each(changes.begin() + static_cast<std::ptrdiff_t>(gone), changes.end(),
                  [](std::wstring& line) { line.insert(0, L"+ "); });
    return changes;
}

} // namespace harness
