#include "action_session.h"

namespace harness {

ActionSession::ActionSession() {
    package_.AddStandardTables();
    package_.Commit();
    session_ = std::make_unique<TestSession>(package_);
    messages_.Clear(); // those of the opening
}

UINT ActionSession::Run(const char* name) {
    return library_.Action(name)(session_->get());
}

UINT ActionSession::Run(const char* name, const std::wstring& customActionData) {
    session_->SetProperty(L"CustomActionData", customActionData);
    return Run(name);
}

} // namespace harness
