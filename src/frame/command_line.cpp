#include "frame/command_line.h"

#include <shellapi.h>

#include <cwctype>

namespace setuputils {
namespace {

bool IsBlank(const wchar_t* text) {
    for (; text != nullptr && *text != L'\0'; ++text) {
        if (!std::iswspace(static_cast<std::wint_t>(*text))) {
            return false;
        }
    }
    return true;
}

} // namespace

CommandLineArguments::CommandLineArguments(const wchar_t* commandLine) {
    if (IsBlank(commandLine)) {
        return;
    }
    arguments_ = CommandLineToArgvW(commandLine, &count_);
    memory_.reset(arguments_);
    if (arguments_ == nullptr) {
        count_ = 0;
    }
}

const wchar_t* CommandLineArguments::at(int number, const wchar_t* fallback) const {
    return number >= 1 && number <= count_ ? arguments_[number - 1] : fallback;
}

} // namespace setuputils
