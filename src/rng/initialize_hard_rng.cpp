// InitializeHardRng (deferred, as the installing service; CustomActionData:
// "entry name/command", the name "InstallCSP" when left out): for every user
// hive whose RunOnce key exists and whose user's random seed is not yet
// initialised, writes the command as that RunOnce entry, so that the seeding
// runs at the user's next logon. Seeded users' entries are left alone. With
// an empty command the entry is removed from every hive instead. Nothing is
// reported and the installation never fails here.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "profiles/user_run_once.h"
#include "rng/random_seed.h"
#include "rng/seeding_rules.h"

namespace setuputils {
namespace {

void ScheduleSeeding(MSIHANDLE session) {
    std::wstring data;
    if (GetPropertyString(session, L"CustomActionData", data) != ERROR_SUCCESS || data.empty()) {
        return;
    }
    UpdateEveryUsersRunOnce(SplitRunOnceRequest(data), UserNeedsSeeding);
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI InitializeHardRng(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"InitializeHardRng", setuputils::ScheduleSeeding);
}
