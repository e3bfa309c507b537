// Stands in for the previous product generation's setup program, run silently as
//   <program> -s -f1"<response file>" -f2"<log file>"
// It does what its response file says, one key=value a line:
//   result=<text>        a line "ResultCode=<text>" in the log, in the order given
//                        (without any, the log holds no result code)
//   exit=<number>        its exit code (0 when not given)
//   rename=<from>|<to>   a rename queued for the next restart with MoveFileExW;
//                        with nothing after "|", a deletion
// Without a readable response file or a log switch it exits with 99.
#include <filesystem>
#include <fstream>
#include <string>

#include <windows.h>

namespace {

// The text between `switchText` + '"' and the next '"'.
std::wstring QuotedArgument(const std::wstring& commandLine, const std::wstring& switchText) {
    const std::size_t start = commandLine.find(switchText + L"\"");
    if (start == std::wstring::npos) {
        return L"";
    }
    const std::size_t from = start + switchText.size() + 1;
    return commandLine.substr(from, commandLine.find(L'"', from) - from);
}

} // namespace

int main() {
    const std::wstring commandLine = GetCommandLineW();
    const std::wstring logPath = QuotedArgument(commandLine, L"-f2");
    std::ifstream response(std::filesystem::path(QuotedArgument(commandLine, L"-f1")));
    if (!response || logPath.empty()) {
        return 99;
    }
    std::string log = "[Removal]\r\n", line;
    int exitCode = 0;
    while (std::getline(response, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const std::size_t equals = line.find('=');
        const std::string key = line.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : line.substr(equals + 1);
        if (key == "result") {
            log += "ResultCode=" + value + "\r\n";
        } else if (key == "exit") {
            exitCode = std::stoi(value);
        } else if (key == "rename") {
            const std::string from = value.substr(0, value.find('|'));
            const std::string to = value.substr(from.size() + 1);
            MoveFileExA(from.c_str(), to.empty() ? nullptr : to.c_str(), MOVEFILE_DELAY_UNTIL_REBOOT);
        }
    }
    std::ofstream(std::filesystem::path(logPath), std::ios::binary) << log;
    return exitCode;
}
