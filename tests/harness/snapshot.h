// The registry trees a test names, captured as text lines, and the difference
// between two captures.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

namespace harness {

using Lines = std::vector<std::wstring>;

// Keys, each with its subkeys and values.
using Watched = std::vector<std::pair<HKEY, std::wstring>>;

// One line per key and value: "HKLM\<path>", "HKLM\<path> [<name>] <type> <data>";
// missing ones are left out.
using Snapshot = std::set<std::wstring>;

Snapshot TakeSnapshot(const Watched& watched);

// "- <line>" for every line gone, then "+ <line>" for every line new.
Lines SnapshotChanges(const Snapshot& before, const Snapshot& after);

} // namespace harness
