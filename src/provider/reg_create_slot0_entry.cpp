// RegCreateSlot0Entry (deferred): creates the provider's PKCS#11 slot entry
// in the 32-bit registry view, once: reader "REGISTRY" and the names of the
// default RSA (type 1) and GOST (type 75) providers of that view. An existing
// slot entry is never touched; registry failures end the action quietly.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/registry_values.h"

namespace setuputils {
namespace {

constexpr wchar_t kSlotKey[] = L"SOFTWARE\\Norvane\\Cryptography\\CurrentVersion\\PKCS11\\slot0";
constexpr wchar_t kRsaTypeKey[] = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 001";
constexpr wchar_t kGostTypeKey[] = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider Types\\Type 075";
constexpr REGSAM kSlotAccess = MAXIMUM_ALLOWED | KEY_WOW64_32KEY;
constexpr REGSAM kTypeAccess = KEY_QUERY_VALUE | KEY_WOW64_32KEY;
constexpr wchar_t kReaderValue[] = L"Reader";
constexpr wchar_t kReader[] = L"REGISTRY";
constexpr wchar_t kRsaValue[] = L"ProvRSA";
constexpr wchar_t kGostValue[] = L"provGOST";
constexpr wchar_t kNameValue[] = L"Name";
constexpr DWORD kValueDataBytes = 520;
// The provider values start as a single zero byte until a name is found.
constexpr DWORD kPlaceholderBytes = 1;

void WriteString(HKEY key, const wchar_t* name, const void* data, DWORD bytes) {
    RegSetValueExW(key, name, 0, REG_SZ, static_cast<const BYTE*>(data), bytes);
}

// Copies the "Name" value of the provider type key, as it is stored, into
// `value` of the slot key; nothing when the type key cannot be opened.
void CopyProviderName(HKEY slot, const wchar_t* typeKey, const wchar_t* value) {
    RegKey type;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, typeKey, 0, kTypeAccess, type.put()) != ERROR_SUCCESS) {
        return;
    }
    WalkKey(type.get(), KeyEntries::Values, [&](const std::wstring& name) {
        BYTE data[kValueDataBytes] = {};
        DWORD dataBytes = kValueDataBytes;
        // A "Name" whose data do not fit is passed over like any other value.
        if (_wcsicmp(name.c_str(), kNameValue) != 0 ||
            RegQueryValueExW(type.get(), name.c_str(), nullptr, nullptr, data, &dataBytes) != ERROR_SUCCESS) {
            return true;
        }
        WriteString(slot, value, data, dataBytes);
        return false;
    });
}

void CreateSlotEntry() {
    RegKey slot;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, kSlotKey, 0, kSlotAccess, slot.put()) == ERROR_SUCCESS) {
        return;
    }
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, kSlotKey, 0, nullptr, 0, kSlotAccess, nullptr, slot.put(),
                        nullptr) != ERROR_SUCCESS) {
        return;
    }
    WriteString(slot.get(), kReaderValue, kReader, static_cast<DWORD>(wcslen(kReader) * sizeof(wchar_t)));
    WriteString(slot.get(), kRsaValue, L"", kPlaceholderBytes);
    WriteString(slot.get(), kGostValue, L"", kPlaceholderBytes);
    CopyProviderName(slot.get(), kRsaTypeKey, kRsaValue);
    CopyProviderName(slot.get(), kGostTypeKey, kGostValue);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI RegCreateSlot0Entry(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"RegCreateSlot0Entry",
                                               [] { setuputils::CreateSlotEntry(); });
}
