#include "features/hidden_provider_feature.h"

#include <msiquery.h>

#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr wchar_t kChildFeatureQuery[] = L"SELECT * FROM `Feature` WHERE `Feature_Parent`='nvcspr'";
constexpr wchar_t kProviderFeatureQuery[] = L"SELECT * FROM `Feature` WHERE `Feature`='nvcspr'";
constexpr UINT kDisplayField = 5;

// The provider's row taken out and put back hidden (Display 0).
void HideProviderRow(MSIHANDLE database) {
    View provider;
    MsiHandle feature;
    if (ExecuteView(database, kProviderFeatureQuery, provider) == ERROR_SUCCESS &&
        MsiViewFetch(provider.get(), feature.put()) == ERROR_SUCCESS &&
        MsiViewModify(provider.get(), MSIMODIFY_DELETE, feature.get()) == ERROR_SUCCESS &&
        MsiRecordSetInteger(feature.get(), kDisplayField, 0) == ERROR_SUCCESS) {
        MsiViewModify(provider.get(), MSIMODIFY_INSERT_TEMPORARY, feature.get());
    }
}

} // namespace

void HideProviderFeature(MSIHANDLE session) {
    MsiHandle database = OpenActiveDatabase(session);
    View children;
    if (ExecuteView(database.get(), kChildFeatureQuery, children) != ERROR_SUCCESS) {
        return;
    }
    // Only the first child is taken out and put back.
    MsiHandle child;
    if (MsiViewFetch(children.get(), child.put()) == ERROR_SUCCESS &&
        MsiViewModify(children.get(), MSIMODIFY_DELETE, child.get()) != ERROR_SUCCESS) {
        return;
    }
    HideProviderRow(database.get());
    // The child goes back whatever became of the provider's row: it is never lost.
    if (child) {
        MsiViewModify(children.get(), MSIMODIFY_INSERT_TEMPORARY, child.get());
    }
}

} // namespace setuputils
