// SetRunOnceEveryone (deferred; CustomActionData: "entry name/command", the
// name "InstallCSP" when left out): writes the command as that RunOnce entry
// of every user whose hive is loaded and has a RunOnce key, or, with an empty
// command, removes the entry from all of them. Users whose hives are not
// loaded are not reached. Nothing is reported and the installation never
// fails here.
#include <string>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/session.h"
#include "profiles/user_run_once.h"
#include "rng/seeding_rules.h"

namespace setuputils {
namespace {

void SetEveryUsersRunOnce(MSIHANDLE session) {
    std::wstring data;
    if (GetPropertyString(session, L"CustomActionData", data) != ERROR_SUCCESS || data.empty()) {
        return;
    }
    UpdateEveryUsersRunOnce(SplitRunOnceRequest(data), [](const std::wstring&) { return true; });
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI SetRunOnceEveryone(MSIHANDLE session) {
    return setuputils::RunActionThatNeverFails(session, L"SetRunOnceEveryone",
                                               setuputils::SetEveryUsersRunOnce);
}
