#include "readers/registry_rows.h"

#include <msiquery.h>

#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

constexpr int kLocalMachineRoot = 2;
constexpr wchar_t kWholeKey[] = L"-";

constexpr wchar_t kRegistryQuery[] =
    L"SELECT `Registry`.`Root`, `Registry`.`Registry`, `Registry`.`Key`, `Registry`.`Name`, "
    L"`Registry`.`Value`, `Registry`.`Component_` FROM `Registry`";
// The two double blanks are part of the query as the package's tools know it.
constexpr wchar_t kRemoveRegistryQuery[] =
    L"SELECT  `RemoveRegistry`.`Root`, `RemoveRegistry`.`RemoveRegistry`,  `RemoveRegistry`.`Key`, "
    L"`RemoveRegistry`.`Name`, `RemoveRegistry`.`Component_` FROM `RemoveRegistry`";

UINT ReportWriteFailure(MSIHANDLE session, UINT status) {
    ReportActionError(session, L"WriteToTable", L"WriteToRegistry()", status);
    return status;
}

} // namespace

UINT WriteToTable(MSIHANDLE session, const wchar_t* query, const std::vector<std::wstring>& fields) {
    MsiHandle database = OpenActiveDatabase(session);
    if (!database) {
        return ERROR_SUCCESS;
    }
    View view;
    MsiHandle record;
    if (ExecuteView(database.get(), query, view) != ERROR_SUCCESS ||
        MsiViewFetch(view.get(), record.put()) != ERROR_SUCCESS) {
        return ERROR_SUCCESS;
    }
    if (const UINT status = MsiRecordSetInteger(record.get(), 1, kLocalMachineRoot);
        status != ERROR_SUCCESS) {
        return ReportWriteFailure(session, status);
    }
    for (UINT field = 0; field < fields.size(); ++field) {
        if (const UINT status = MsiRecordSetStringW(record.get(), field + 2, fields[field].c_str());
            status != ERROR_SUCCESS) {
            return ReportWriteFailure(session, status);
        }
    }
    if (const UINT status = MsiViewModify(view.get(), MSIMODIFY_INSERT_TEMPORARY, record.get());
        status != ERROR_SUCCESS) {
        return ReportWriteFailure(session, status);
    }
    return ERROR_SUCCESS;
}

UINT AddRegistryRow(MSIHANDLE session, const std::wstring& identifier, const std::wstring& key,
                    const std::wstring& name, const std::wstring& value, const std::wstring& component) {
    return WriteToTable(session, kRegistryQuery, {identifier, key, name, value, component});
}

UINT AddRemoveRegistryRow(MSIHANDLE session, const std::wstring& identifier, const std::wstring& key,
                          const std::wstring& component) {
    return WriteToTable(session, kRemoveRegistryQuery, {identifier, key, kWholeKey, component});
}

} // namespace setuputils
