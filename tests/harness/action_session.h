// A session on a package with the standard tables, on which the tests run the
// library's actions as the installer would.
#pragma once

#include <memory>
#include <string>

#include "library.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {

class ActionSession {
public:
    ActionSession();

    MSIHANDLE get() const { return session_->get(); }
    TestSession& session() { return *session_; }
    // The messages since the session opened.
    MessageRecorder& messages() { return messages_; }

    // Runs the exported action `name`.
    UINT Run(const char* name);
    // Runs it as a deferred action would run: `customActionData` is its input.
    UINT Run(const char* name, const std::wstring& customActionData);

private:
    SetupUtilsLibrary library_;
    TestPackage package_;
    std::unique_ptr<TestSession> session_;
    MessageRecorder messages_;
};

} // namespace harness
