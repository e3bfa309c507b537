// AddNewFeatures (immediate): selects features that came with this edition
// for local installation. "nvconfig" is selected unless it is installed or
// chosen locally already. "nvcspr1" is selected when it is not installed yet,
// "fake_nvcspr" is installed and stays local, and the product's probe
// component is installed locally with a file as its key path. Stops quietly at
// the first failing installer call.
#include <string>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/product_codes.h"
#include "frame/session.h"

namespace setuputils {
namespace {

struct FeatureStates {
    INSTALLSTATE installed = INSTALLSTATE_UNKNOWN;
    INSTALLSTATE action = INSTALLSTATE_UNKNOWN;
};

bool ReadFeatureStates(MSIHANDLE session, const wchar_t* feature, FeatureStates& states) {
    return MsiGetFeatureStateW(session, feature, &states.installed, &states.action) == ERROR_SUCCESS;
}

bool SelectLocal(MSIHANDLE session, const wchar_t* feature) {
    return MsiSetFeatureStateW(session, feature, INSTALLSTATE_LOCAL) == ERROR_SUCCESS;
}

// The probe component of this product is installed locally and its key path
// is a file, not a folder (a folder's path ends in a backslash).
bool ProbeComponentHasLocalFile(MSIHANDLE session) {
    std::wstring productCode;
    GetPropertyString(session, L"ProductCode", productCode);
    wchar_t path[MAX_PATH] = L"";
    DWORD size = MAX_PATH;
    if (MsiGetComponentPathW(productCode.c_str(), kNewFeaturesProbeComponent, path, &size) !=
        INSTALLSTATE_LOCAL) {
        return false;
    }
    const std::wstring keyPath(path);
    return keyPath.empty() || keyPath.back() != L'\\';
}

void AddFeatures(MSIHANDLE session) {
    FeatureStates config;
    if (!ReadFeatureStates(session, L"nvconfig", config)) {
        return;
    }
    if (config.installed != INSTALLSTATE_LOCAL && config.action != INSTALLSTATE_LOCAL &&
        !SelectLocal(session, L"nvconfig")) {
        return;
    }
    FeatureStates provider;
    if (!ReadFeatureStates(session, L"nvcspr1", provider) || provider.installed == INSTALLSTATE_LOCAL) {
        return;
    }
    FeatureStates previous;
    if (!ReadFeatureStates(session, L"fake_nvcspr", previous) || previous.installed != INSTALLSTATE_LOCAL ||
        previous.action != INSTALLSTATE_LOCAL) {
        return;
    }
    if (ProbeComponentHasLocalFile(session)) {
        SelectLocal(session, L"nvcspr1");
    }
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI AddNewFeatures(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"AddNewFeatures", setuputils::AddFeatures);
}
