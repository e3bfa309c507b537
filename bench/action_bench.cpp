// Times the actions that walk a table or the machine's users, at 100 and at
// 2,000 items, against a bare loop making the installer's and the registry's
// own calls for the same items, and prints the cost per item, the ratio of
// the action to the bare loop, and how the cost per item grows from 100 to
// 2,000 items (1.0: linear).
//
//   action_bench.exe [rounds]
//
// ProcessRegReaders: key-carrier rows, each a temporary Registry row (bare:
// fetch the row, read its component's states, insert the row). KSProcess:
// driver packages being installed, each scheduled twice (bare: fetch the row,
// read the component's states, set the data and schedule two actions).
// SetRunOnceEveryone and DeleteShortcuts: users (bare: open each user's key
// and write, or delete, one entry).
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <windows.h>
#include <msi.h>
#include <msiquery.h>

#include "action_session.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "library.h"
#include "machine.h"
#include "test_package.h"

namespace {

using harness::TestPackage;
using harness::TestSession;
using setuputils::MsiHandle;
using setuputils::RegKey;

constexpr int kSizes[] = {100, 2000};
constexpr wchar_t kSidPrefix[] = L"S-1-5-21-7-7-7-";
constexpr wchar_t kRunOnce[] = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
constexpr wchar_t kSettingsUsers[] = L"SOFTWARE\\Norvane\\Settings\\Users\\";
constexpr wchar_t kPasswords[] = L"\\KeyDevices\\passwords\\saved";

double Seconds(const std::function<void()>& work) {
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    work();
    QueryPerformanceCounter(&end);
    return static_cast<double>(end.QuadPart - start.QuadPart) / static_cast<double>(frequency.QuadPart);
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void Require(UINT status, const char* what) {
    if (status != ERROR_SUCCESS) {
        std::fprintf(stderr, "%s failed: %u\n", what, status);
        std::exit(1);
    }
}

// Each row of `query`, fetched in turn.
void ForEachRow(MSIHANDLE session, const wchar_t* query, const std::function<void(MSIHANDLE)>& visit) {
    setuputils::View view;
    Require(setuputils::OpenView(session, query, view), "open view");
    Require(setuputils::ForEachRecord(view.get(),
                                      [&](MSIHANDLE record) {
                                          visit(record);
                                          return ERROR_SUCCESS;
                                      }),
            "fetch");
}

std::wstring Field(MSIHANDLE record, UINT field) {
    std::wstring text;
    setuputils::GetRecordString(record, field, text);
    return text;
}

void ReadStates(MSIHANDLE session, const std::wstring& component) {
    INSTALLSTATE installed, action;
    MsiGetComponentStateW(session, component.c_str(), &installed, &action);
}

// A package of `items` key-carrier rows of one 64-bit registry component.
void AddReaderRows(TestPackage& package, int items) {
    package.AddRegReadersTable();
    package.AddRegistryComponent(L"nvcsp64", true);
    package.Insert(L"Registry", L"`Registry`, `Root`, `Key`, `Name`, `Component_`",
                   {{L"Package", L"#2", L"SOFTWARE\\Package", L"x", L"nvcsp64"}});
    for (int i = 0; i < items; ++i) {
        const std::wstring name = L"Carrier" + std::to_wstring(i);
        package.Insert(L"RegReaders", L"`Type`, `Name`, `Parameter`, `Value`, `Component_`, `Condition`",
                       {{L"KeyCarriers", name, L"-", name + L".dll", L"nvcsp64", L"1"}});
    }
}

void BareReaderRows(MSIHANDLE session) {
    MsiHandle database(MsiGetActiveDatabase(session)), registry, first;
    Require(MsiDatabaseOpenViewW(database.get(), L"SELECT * FROM `Registry`", registry.put()), "registry");
    Require(MsiViewExecute(registry.get(), 0), "registry");
    Require(MsiViewFetch(registry.get(), first.put()), "registry row");
    int row = 0;
    ForEachRow(session, L"SELECT `Name`, `Value`, `Component_` FROM `RegReaders`", [&](MSIHANDLE reader) {
        ReadStates(session, Field(reader, 3));
        MsiRecordSetStringW(first.get(), 1, (L"bare" + std::to_wstring(++row)).c_str());
        MsiRecordSetStringW(first.get(), 4, Field(reader, 2).c_str());
        Require(MsiViewModify(registry.get(), MSIMODIFY_INSERT_TEMPORARY, first.get()), "insert");
    });
}

// `items` driver packages, each a component whose key file is its INF.
void AddDriverRows(TestPackage& package, int items) {
    package.AddDriverPackagesTable();
    package.AddDirectory(L"DRIVERDIR", L"drivers:.");
    package.AddBinary(L"SetupUtils", harness::SetupUtilsLibrary::Path());
    for (const wchar_t* name : {L"KSInstall64", L"KSRollback64"}) {
        package.AddDeferredAction(name, L"KSInstInstall");
    }
    for (int i = 0; i < items; ++i) {
        const std::wstring component = L"drv" + std::to_wstring(i);
        package.AddFileComponent(component, L"DRIVERDIR", component + L".inf");
        package.AddDriverPackage(component, 0);
    }
}

void BareDriverRows(MSIHANDLE session) {
    ForEachRow(session,
               L"SELECT `NVDriverPackages`.`Component`, `Component`.`ComponentId`, `File`.`FileName` "
               L"FROM `NVDriverPackages`, `Component`, `File` WHERE `NVDriverPackages`.`Component` = "
               L"`Component`.`Component` AND `Component`.`KeyPath` = `File`.`File`",
               [&](MSIHANDLE row) {
                   const std::wstring component = Field(row, 1);
                   ReadStates(session, component);
                   for (const wchar_t* action : {L"KSRollback64", L"KSInstall64"}) {
                       MsiSetPropertyW(session, action, (component + Field(row, 3)).c_str());
                       MsiDoActionW(session, action);
                   }
               });
}

// Stops the run when an action did not do the work it is timed for.
void RequireWork(const char* action, int items, int done) {
    if (done < items) {
        std::fprintf(stderr, "%s did %d of %d items\n", action, done, items);
        std::exit(1);
    }
}

// The temporary Registry rows beside the package's own; every package scheduled (the last one's data set).
int RegistryRowsAdded(TestSession& session, int) {
    return static_cast<int>(session.Rows(L"SELECT `Registry` FROM `Registry`").size()) - 1;
}
int PackagesScheduled(TestSession& session, int items) {
    return session.Property(L"KSInstall64").empty() ? 0 : items;
}

struct Timing {
    double action = 0;
    double bare = 0;
};

// The action and the bare loop, each in a costed session on a new package of
// `items` (temporary rows stay with the package's database, not the session).
Timing TimeTableAction(const char* action, int items, void (*add)(TestPackage&, int), void (*bare)(MSIHANDLE),
                       int (*done)(TestSession&, int), int rounds) {
    const harness::SetupUtilsLibrary library;
    std::vector<double> actionTimes, bareTimes;
    for (int round = 0; round < rounds; ++round) {
        for (bool timeAction : {true, false}) {
            TestPackage package;
            package.AddStandardTables();
            add(package, items);
            package.Commit();
            TestSession session(package);
            session.Cost();
            if (timeAction) {
                actionTimes.push_back(
                    Seconds([&] { Require(library.Action(action)(session.get()), action); }));
                RequireWork(action, items, done(session, items));
            } else {
                bareTimes.push_back(Seconds([&] { bare(session.get()); }));
            }
        }
    }
    return {Median(actionTimes), Median(bareTimes)};
}

std::wstring UserKey(int user) {
    return kSidPrefix + std::to_wstring(user);
}

// `items` loaded users with a RunOnce key and a saved password each; removed by Clear.
void AddUsers(int items) {
    for (int i = 0; i < items; ++i) {
        RegKey key;
        RegCreateKeyExW(HKEY_USERS, (UserKey(i) + kRunOnce).c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                        key.put(), nullptr);
        harness::WriteRegistryString(HKEY_LOCAL_MACHINE, kSettingsUsers + UserKey(i) + kPasswords, L"pin",
                                     L"1");
    }
}

void ClearUsers(int items) {
    for (int i = 0; i < items; ++i) {
        harness::DeleteRegistryTree(HKEY_USERS, UserKey(i));
    }
    harness::DeleteRegistryTree(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Norvane");
}

void BareRunOnce(int items) {
    for (int i = 0; i < items; ++i) {
        harness::WriteRegistryString(HKEY_USERS, UserKey(i) + kRunOnce, L"Bench", L"C:\\bench.exe");
    }
}

void BarePasswords(int items) {
    for (int i = 0; i < items; ++i) {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, (kSettingsUsers + UserKey(i) + kPasswords).c_str());
    }
}

Timing TimeUserAction(const char* action, const wchar_t* data, int items, void (*bare)(int), int rounds) {
    std::vector<double> actionTimes, bareTimes;
    for (int round = 0; round < rounds; ++round) {
        AddUsers(items);
        harness::ActionSession session;
        actionTimes.push_back(Seconds([&] { session.Run(action, data); }));
        const bool written =
            harness::ReadRegistryString(HKEY_USERS, UserKey(items - 1) + kRunOnce, L"Bench").has_value();
        const bool deleted =
            !harness::RegistryKeyExists(HKEY_LOCAL_MACHINE, kSettingsUsers + UserKey(items - 1) + kPasswords);
        RequireWork(action, items, written || deleted ? items : 0);
        ClearUsers(items);
        AddUsers(items);
        bareTimes.push_back(Seconds([&] { bare(items); }));
        ClearUsers(items);
    }
    return {Median(actionTimes), Median(bareTimes)};
}

void Print(const char* action, const Timing (&timings)[2]) {
    double perItem[2];
    for (int i = 0; i < 2; ++i) {
        perItem[i] = timings[i].action / kSizes[i];
        std::printf("%-20s %6d items  %9.1f us/item  bare %8.1f us/item  ratio %5.2f\n", action, kSizes[i],
                    perItem[i] * 1e6, timings[i].bare / kSizes[i] * 1e6, timings[i].action / timings[i].bare);
    }
    std::printf("%-20s growth of the cost per item, %d to %d items: %.2f\n", action, kSizes[0], kSizes[1],
                perItem[1] / perItem[0]);
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    MsiSetInternalUI(INSTALLUILEVEL_NONE, nullptr);
    Timing timings[2];
    for (int i = 0; i < 2; ++i) {
        timings[i] = TimeTableAction("ProcessRegReaders", kSizes[i], AddReaderRows, BareReaderRows,
                                     RegistryRowsAdded, rounds);
    }
    Print("ProcessRegReaders", timings);
    for (int i = 0; i < 2; ++i) {
        timings[i] =
            TimeTableAction("KSProcess", kSizes[i], AddDriverRows, BareDriverRows, PackagesScheduled, rounds);
    }
    Print("KSProcess", timings);
    for (int i = 0; i < 2; ++i) {
        timings[i] =
            TimeUserAction("SetRunOnceEveryone", L"Bench/C:\\bench.exe", kSizes[i], BareRunOnce, rounds);
    }
    Print("SetRunOnceEveryone", timings);
    for (int i = 0; i < 2; ++i) {
        timings[i] = TimeUserAction("DeleteShortcuts", L"", kSizes[i], BarePasswords, rounds);
    }
    Print("DeleteShortcuts", timings);
    return 0;
}
