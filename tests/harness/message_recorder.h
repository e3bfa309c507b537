// Captures every message the installer posts, with its type and fields.
#pragma once

#include <string>
#include <vector>

#include <windows.h>
#include <msi.h>

namespace harness {

struct RecordedMessage {
    UINT type = 0;                    // INSTALLMESSAGE_* without the button and icon bits
    std::vector<std::wstring> fields; // field 0 up to the record's field count
    std::wstring text;                // the record formatted by the installer
};

// Installs an external record handler for its lifetime; one at a time.
class MessageRecorder {
public:
    MessageRecorder();
    ~MessageRecorder();
    MessageRecorder(const MessageRecorder&) = delete;
    MessageRecorder& operator=(const MessageRecorder&) = delete;

    const std::vector<RecordedMessage>& all() const { return messages_; }
    std::vector<RecordedMessage> OfType(UINT type) const;
    // Fields 1 and up of each message of `type` (field 0, the template, is
    // the installer's own for errors).
    std::vector<std::vector<std::wstring>> FieldsOf(UINT type) const;
    // Field 0 and 1 of the information messages, joined as the installer would format them.
    std::vector<std::wstring> InfoTexts() const;
    // Names of the actions the installer reported as started, in order.
    std::vector<std::wstring> StartedActions() const;
    void Clear() { messages_.clear(); }

private:
    static int WINAPI Handle(LPVOID context, UINT type, MSIHANDLE record);

    std::vector<RecordedMessage> messages_;
    INSTALLUI_HANDLER_RECORD previous_ = nullptr;
};

} // namespace harness
