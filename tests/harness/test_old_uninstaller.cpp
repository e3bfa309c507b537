// Stands in for the previous product generation's setup program, run silently as
//   <program> -s -f1"<response file>" -f2"<log file>"
// It does what its response file says, one key=value a line:
//   result=<text>        a line "ResultCode=<text>" in the log, in the order given
//                        (without any, the log holds no result code)
//   exit=<number>        its exit code (0 when not given)
//   rename=<from>|<to>   a rename queued for the next restart with MoveFileExW;
//                        with nothing after "|", a deletion
//   record=<key>         its command line, as received, in HKCU\<key> "CommandLine"
// Without a readable response file or a log switch it exits with 99.
#include <string>
#include <vector>

#include <windows.h>

namespace {

// The text between `switchText` + '"' and the next '"'.
std::wstring QuotedArgument(const std::wstring& commandLine, const std::wstring& switchText) {
    const std::wstring opening = switchText + L"\"";
    const std::size_t start = commandLine.find(opening);
    if (start == std::wstring::npos) {
        return L"";
    }
    const std::size_t from = start + opening.size();
    return commandLine.substr(from, commandLine.find(L'"', from) - from);
}

std::string ReadFileText(const std::wstring& path) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return "";
    }
    std::string text(GetFileSize(file, nullptr), '\0');
    DWORD read = 0;
    ReadFile(file, text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    CloseHandle(file);
    text.resize(read);
    return text;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

void Record(const std::wstring& key, const std::wstring& commandLine) {
    HKEY records = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, key.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &records,
                        nullptr) == ERROR_SUCCESS) {
        RegSetValueExW(records, L"CommandLine", 0, REG_SZ, reinterpret_cast<const BYTE*>(commandLine.c_str()),
                       static_cast<DWORD>((commandLine.size() + 1) * sizeof(wchar_t)));
        RegCloseKey(records);
    }
}

void QueueRename(const std::wstring& operation) {
    const std::size_t bar = operation.find(L'|');
    const std::wstring from = operation.substr(0, bar);
    const std::wstring to = bar == std::wstring::npos ? L"" : operation.substr(bar + 1);
    MoveFileExW(from.c_str(), to.empty() ? nullptr : to.c_str(), MOVEFILE_DELAY_UNTIL_REBOOT);
}

} // namespace

int main() {
    const std::wstring commandLine = GetCommandLineW();
    const std::wstring responsePath = QuotedArgument(commandLine, L"-f1");
    const std::wstring logPath = QuotedArgument(commandLine, L"-f2");
    const std::string response = ReadFileText(responsePath);
    if (response.empty() || logPath.empty()) {
        return 99;
    }
    std::string log = "[Removal]\r\n";
    int exitCode = 0;
    for (const std::string& line : Lines(response)) {
        const std::size_t equals = line.find('=');
        const std::string key = line.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : line.substr(equals + 1);
        if (key == "result") {
            log += "ResultCode=" + value + "\r\n";
        } else if (key == "exit") {
            exitCode = std::stoi(value);
        } else if (key == "rename") {
            QueueRename(Wide(value));
        } else if (key == "record") {
            Record(Wide(value), commandLine);
        }
    }
    HANDLE file = CreateFileW(logPath.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return 99;
    }
    DWORD written = 0;
    WriteFile(file, log.data(), static_cast<DWORD>(log.size()), &written, nullptr);
    CloseHandle(file);
    return exitCode;
}
