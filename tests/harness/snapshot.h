// The parts of the machine a test names (registry trees, services, files),
// captured as text lines, and the difference between two captures.
#pragma once

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <windows.h>

namespace harness {

using Lines = std::vector<std::wstring>;

struct Watched {
    std::vector<std::pair<HKEY, std::wstring>> keys; // each with its subkeys and values
    std::vector<std::wstring> services;              // each by name
    std::vector<std::wstring> files;                 // each by full path
};

// One line per key, value, service and file: "HKLM\<path>", "HKLM\<path>
// [<name>] <type> <data>", "service <name> <configuration> <state>", "file
// <path> <size> <checksum>"; missing ones are left out.
using Snapshot = std::set<std::wstring>;

Snapshot TakeSnapshot(const Watched& watched);

// "- <line>" for every line gone, then "+ <line>" for every line new.
Lines SnapshotChanges(const Snapshot& before, const Snapshot& after);

} // namespace harness
