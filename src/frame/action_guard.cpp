#include "frame/action_guard.h"

#include <exception>
#include <new>

#include "frame/handles.h"
#include "frame/session.h"

namespace setuputils {
namespace {

const wchar_t* DescribeCurrentException() noexcept {
    try {
        throw;
    } catch (const std::bad_alloc&) {
        return L"out of memory";
    } catch (...) {
        return L"unexpected exception";
    }
}

} // namespace

void ReportActionException(MSIHANDLE session, const wchar_t* action) noexcept {
    MsiHandle record(MsiCreateRecord(2));
    MsiRecordSetStringW(record.get(), 0, L"[1] stopped: [2].");
    MsiRecordSetStringW(record.get(), 1, action);
    MsiRecordSetStringW(record.get(), 2, DescribeCurrentException());
    MsiProcessMessage(session, kMessageInfo, record.get());
}

} // namespace setuputils
