#include "drivers/schedule_driver_package.h"

#include "drivers/driver_rules.h"
#include "drivers/inf_file.h"
#include "frame/driver_action_data.h"
#include "frame/handles.h"
#include "frame/install_log.h"
#include "frame/session.h"

namespace setuputils {
namespace {

// A deferred action reads its data from the property named after it.
UINT ScheduleDeferredAction(MSIHANDLE session, const wchar_t* action, const std::wstring& data) {
    UINT status = SetProperty(session, action, data.c_str());
    return status | MsiDoActionW(session, action);
}

// Adds the service of the INF's install section to uninstall data, when the
// INF opens and names one.
void AppendInfServiceName(MSIHANDLE session, const std::wstring& infPath, std::wstring& data) {
    InfHandle inf(SetupOpenInfFileW(infPath.c_str(), nullptr, INF_STYLE_WIN4, nullptr));
    if (!inf) {
        return;
    }
    SessionLog log(session);
    std::wstring servicesSection = InstallSectionOrDefault(inf.get(), log) + kServicesSectionSuffix;
    std::wstring serviceName;
    if (FindServiceName(inf.get(), servicesSection, serviceName) == InfLookup::Found) {
        AppendServiceName(data, serviceName);
    }
}

} // namespace

UINT ScheduleDriverPackage(MSIHANDLE session, bool install, const std::wstring& fileName,
                           const std::wstring& directory, const std::wstring& componentId, unsigned flags) {
    std::wstring versionNT64;
    UINT status = GetPropertyString(session, L"VersionNT64", versionNT64);
    DeferredDriverActions actions = ChooseDeferredDriverActions(versionNT64);
    ReportInfo(session, actions.marker);

    std::wstring data = BuildDriverActionData(directory, fileName, componentId, flags);
    if (install) {
        // The installer wants the rollback action in the script before the action it undoes.
        status |= ScheduleDeferredAction(session, actions.rollback, data);
        status |= ScheduleDeferredAction(session, actions.install, data);
    } else {
        // The whole file name value, short|long form included, names the INF here.
        AppendInfServiceName(session, directory + fileName, data);
        status |= ScheduleDeferredAction(session, actions.uninstall, data);
    }

    ReportInfo(session, data.c_str());
    ReportProgress(session, kScheduleProgressTicks);
    return status;
}

} // namespace setuputils
