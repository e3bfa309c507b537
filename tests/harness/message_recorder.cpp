#include "message_recorder.h"

#include <msiquery.h>

#include "msi_text.h"

namespace harness {
namespace {

constexpr UINT kTypeMask = 0xFF000000;
constexpr DWORD kEveryMessage = 0xFFFFFFFF;
// More fields than any message of the library or the installer carries.
constexpr UINT kMostFields = 64;

std::wstring FieldText(MSIHANDLE record, UINT field) {
    return ReadMsiText(
        [&](wchar_t* text, DWORD* size) { return MsiRecordGetStringW(record, field, text, size); });
}

std::wstring FormattedText(MSIHANDLE record) {
    return ReadMsiText([&](wchar_t* text, DWORD* size) { return MsiFormatRecordW(0, record, text, size); });
}

} // namespace

MessageRecorder::MessageRecorder() {
    MsiSetExternalUIRecord(&MessageRecorder::Handle, kEveryMessage, this, &previous_);
}

MessageRecorder::~MessageRecorder() {
    MsiSetExternalUIRecord(previous_, 0, nullptr, nullptr);
}

int WINAPI MessageRecorder::Handle(LPVOID context, UINT type, MSIHANDLE record) {
    auto* self = static_cast<MessageRecorder*>(context);
    RecordedMessage message;
    message.type = type & kTypeMask;
    if (record != 0) {
        UINT count = MsiRecordGetFieldCount(record);
        if (count > kMostFields) {
            count = 0; // not a record handle
        }
        for (UINT field = 0; field <= count; ++field) {
            message.fields.push_back(FieldText(record, field));
        }
        message.text = FormattedText(record);
    }
    self->messages_.push_back(std::move(message));
    return 0;
}

std::vector<RecordedMessage> MessageRecorder::OfType(UINT type) const {
    std::vector<RecordedMessage> selected;
    for (const auto& message : messages_) {
        if (message.type == type) {
            selected.push_back(message);
        }
    }
    return selected;
}

std::vector<std::vector<std::wstring>> MessageRecorder::FieldsOf(UINT type) const {
    std::vector<std::vector<std::wstring>> fields;
    for (const RecordedMessage& message : OfType(type)) {
        fields.emplace_back(message.fields.begin() + 1, message.fields.end());
    }
    return fields;
}

std::vector<std::wstring> MessageRecorder::InfoTexts() const {
    std::vector<std::wstring> texts;
    for (const auto& message : OfType(INSTALLMESSAGE_INFO)) {
        texts.push_back(message.text);
    }
    return texts;
}

std::vector<std::wstring> MessageRecorder::StartedActions() const {
    std::vector<std::wstring> actions;
    for (const auto& message : OfType(INSTALLMESSAGE_ACTIONSTART)) {
        if (message.fields.size() > 1) {
            actions.push_back(message.fields[1]);
        }
    }
    return actions;
}

} // namespace harness
