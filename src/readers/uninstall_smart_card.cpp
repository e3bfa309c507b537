// UninstallSmartCard (deferred): removes the smart-card types of the provider
// named by CustomActionData, in the 32-bit and then the 64-bit registry view,
// and brings back the card types its registration backed up. The first view
// that fails ends the action with that view's status.
#include <string>
#include <vector>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "readers/smart_card_types.h"
#include "registry/registry_library.h"

namespace setuputils {
namespace {

// The card types below `cardTypes` whose "Crypto Provider" is exactly
// `provider`, case and length included.
std::vector<std::wstring> ProviderCardTypes(const std::wstring& cardTypes, const std::wstring& provider) {
    std::vector<std::wstring> names;
    for (const std::wstring& name : MappedSubkeyNames(cardTypes)) {
        RegistryValue value;
        if (GetMappedValue(Below(Below(cardTypes, name), kCryptoProviderValue), value) == kRegistryOk &&
            RegistryDataText(value.data) == provider) {
            names.push_back(name);
        }
    }
    return names;
}

// Returns the OR of the deletions' statuses.
RegistryStatus DeleteProviderCardTypes(const CardTypeView& view, const std::wstring& provider) {
    RegistryStatus result = kRegistryOk;
    for (const std::wstring& name : ProviderCardTypes(view.cardTypes, provider)) {
        // An empty name would delete the card-type key itself.
        result |= name.empty() ? kRegistryBadArgument : DeleteMappedTree(Below(view.cardTypes, name));
    }
    return result;
}

// Copies every card type below the provider's backup key back below the
// card-type key; stops at the first failure.
RegistryStatus RestoreBackedUpCardTypes(const CardTypeView& view, const std::wstring& provider) {
    const std::wstring backup = CardBackupKey(view.backups, provider);
    for (const std::wstring& name : MappedSubkeyNames(backup)) {
        if (RegistryStatus status = CopyMappedTree(Below(view.cardTypes, name), Below(backup, name));
            status != kRegistryOk) {
            return status;
        }
    }
    return kRegistryOk;
}

// An empty provider name names no provider: nothing is removed.
UINT RemoveProviderCardTypes(MSIHANDLE session) {
    std::wstring provider;
    if (GetPropertyString(session, L"CustomActionData", provider) != ERROR_SUCCESS || provider.empty()) {
        return ERROR_SUCCESS;
    }
    for (const CardTypeView& view : kCardTypeViews) {
        if (RegistryStatus status = DeleteProviderCardTypes(view, provider); status != kRegistryOk) {
            return status;
        }
        if (RegistryStatus status = RestoreBackedUpCardTypes(view, provider); status != kRegistryOk) {
            return status;
        }
    }
    return ERROR_SUCCESS;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI UninstallSmartCard(MSIHANDLE session) {
    return setuputils::GuardAction(session, L"UninstallSmartCard", setuputils::RemoveProviderCardTypes);
}
