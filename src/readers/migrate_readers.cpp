// MigrateReaders (immediate): reports what an earlier installation of the
// provider left below its configuration key as properties, so that the
// package's conditions keep the readers, key carriers and random sources the
// user had. Reads the RegReaders table and the registry; writes nothing.
#include <cwchar>
#include <string>
#include <vector>

#include <windows.h>
#include <msiquery.h>

#include "exports.h"
#include "frame/action_guard.h"
#include "frame/handles.h"
#include "frame/session.h"
#include "frame/registry_values.h"
#include "readers/reader_migration.h"
#include "readers/reader_rows.h"

namespace setuputils {
namespace {

constexpr wchar_t kAction[] = L"MigrateReaders";
constexpr wchar_t kReaderEntriesQuery[] =
    L"SELECT DISTINCT `RegReaders`.`Type`, `RegReaders`.`Name`, `RegReaders`.`Condition` FROM `RegReaders` "
    L"WHERE `RegReaders`.`Type`='KeyCarriers' OR `RegReaders`.`Type`='KeyDevices' OR "
    L"`RegReaders`.`Type`='Random'";
constexpr DWORD kTextChars = MAX_PATH; // both the key store path and a subkey name

struct ReaderEntry {
    std::wstring type;
    std::wstring name;
    std::wstring condition;
};

// Returns the status of the first field that cannot be read.
UINT ReadEntry(MSIHANDLE record, ReaderEntry& entry) {
    return GetRecordStrings(record, {&entry.type, &entry.name, &entry.condition});
}

// The stored key store path as it is (not expanded); empty when it cannot be
// read or does not fit.
std::wstring ReadKeyStorePath(HKEY key) {
    wchar_t text[kTextChars] = {};
    DWORD type = REG_NONE;
    DWORD size = sizeof(text);
    if (RegQueryValueExW(key, kKeyStorePathValue, nullptr, &type, reinterpret_cast<BYTE*>(text), &size) !=
            ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ)) {
        return {};
    }
    return std::wstring(text, wcsnlen(text, size / sizeof(wchar_t)));
}

// A missing key leaves the property as the package set it.
void MigrateEntry(MSIHANDLE session, const ReaderEntry& entry) {
    const ReaderMigration migration = DecideReaderMigration(entry.name, entry.condition);
    if (migration == ReaderMigration::Skip) {
        return;
    }
    RegKey key;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, ReaderKey(entry.type, entry.name).c_str(), 0, KEY_READ,
                      key.put()) != ERROR_SUCCESS) {
        return;
    }
    switch (migration) {
    case ReaderMigration::Flag:
        SetProperty(session, entry.condition.c_str(), L"1");
        break;
    case ReaderMigration::KeyStorePath:
        SetProperty(session, kKeyStorePathProperty, KeyStorePathPrefix(ReadKeyStorePath(key.get())).c_str());
        break;
    case ReaderMigration::SubkeyList:
        SetProperty(session, entry.condition.c_str(), JoinSubkeyList(SubkeyNames(key.get())).c_str());
        break;
    case ReaderMigration::Skip:
        break;
    }
}

// Returns 0, or the status of the first record that cannot be read.
// A fetch that fails ends the walk as its end does.
UINT MigrateFetchedEntries(MSIHANDLE session, MSIHANDLE view) {
    UINT unread = ERROR_SUCCESS;
    ForEachRecord(view, [&](MSIHANDLE record) {
        ReaderEntry entry;
        unread = ReadEntry(record, entry);
        if (unread != ERROR_SUCCESS) {
            ReportActionError(session, kAction, L"RecordGetString() fail", unread);
            return unread;
        }
        MigrateEntry(session, entry);
        return static_cast<UINT>(ERROR_SUCCESS);
    });
    return unread;
}

// A package without the table, or with a table the query cannot read, has
// nothing to carry over.
UINT MigrateReaderEntries(MSIHANDLE session) {
    MsiHandle database = OpenActiveDatabase(session);
    View view;
    const UINT opened = MsiDatabaseOpenViewW(database.get(), kReaderEntriesQuery, view.put());
    UINT kept = ERROR_SUCCESS;
    if (!database) {
        // The installer's answer to a view on no database.
        kept = opened;
    } else if (opened == ERROR_SUCCESS && MsiViewExecute(view.get(), 0) == ERROR_SUCCESS) {
        kept = MigrateFetchedEntries(session, view.get());
    }
    if (kept != ERROR_SUCCESS) {
        ReportActionError(session, kAction, L"GetActiveDatabase() fail", kept);
    }
    return kept;
}

} // namespace
} // namespace setuputils

extern "C" UINT WINAPI MigrateReaders(MSIHANDLE session) {
    return setuputils::GuardAction(session, setuputils::kAction, setuputils::MigrateReaderEntries);
}
