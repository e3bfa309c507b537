#include "frame/action_guard.h"

#include <exception>
#include <new>

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
    PostMessageRecord(session, kMessageInfo, L"[1] stopped: [2].", action, DescribeCurrentException());
}

} // namespace setuputils
