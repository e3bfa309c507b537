// Temporary rows of the installer's standard Registry and RemoveRegistry
// tables: the installer's own registry steps write them, roll them back and
// remove them with their components. The rows live only in this session.
#pragma once

#include <string>
#include <vector>

#include <windows.h>
#include <msi.h>

namespace setuputils {

// One row of the package's RegReaders table, its columns in query order.
struct RegReaderRow {
    std::wstring type;
    std::wstring name;
    std::wstring parameter;
    std::wstring value;
    std::wstring component;
    std::wstring condition;
    std::wstring listProperty;
};

// Adds a temporary row to the table of `query`, whose first column is the
// root (always HKEY_LOCAL_MACHINE) and whose further columns take `fields` in
// order. The table must hold a row already: its first row is the record the
// new one is made from, so a table without rows gets nothing and 0 is
// returned. Returns 0 or the installer error of a field or the insert.
UINT WriteToTable(MSIHANDLE session, const wchar_t* query, const std::vector<std::wstring>& fields);

// A Registry row: `identifier` is its primary key.
UINT AddRegistryRow(MSIHANDLE session, const std::wstring& identifier, const std::wstring& key,
                    const std::wstring& name, const std::wstring& value, const std::wstring& component);

// A RemoveRegistry row that removes `key` with everything below it.
UINT AddRemoveRegistryRow(MSIHANDLE session, const std::wstring& identifier, const std::wstring& key,
                          const std::wstring& component);

} // namespace setuputils
