// The RunOnce entry of every user whose hive is loaded under HKEY_USERS.
#pragma once

#include <functional>
#include <string>

#include "rng/seeding_rules.h"

namespace setuputils {

// Decides whether the user with this SID (the name of the hive's key) gets
// the command written.
using RunOnceUserFilter = std::function<bool(const std::wstring& sid)>;

// For every subkey of HKEY_USERS whose RunOnce key exists (it is opened,
// never created): with an empty command, deletes the entry; otherwise writes
// the command as a REG_SZ entry for the users `shouldWrite` accepts. The
// first enumeration error ends the walk; other failures are skipped.
void UpdateEveryUsersRunOnce(const RunOnceRequest& request, const RunOnceUserFilter& shouldWrite);

} // namespace setuputils
