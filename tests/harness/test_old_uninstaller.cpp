// Stands in for the previous product generation's setup program, run silently as
//   <program> -s -f1"<response file>" -f2"<log file>"
// It does what its response file says, one key=value a line:
//   result=<text>        a line "ResultCode=<text>" in the log, in the order given
//   exit=<number>        its exit code (0 when not given)
//   rename=<from>|<to>   a rename queued for the next restart (a deletion without <to>)
// Without a readable response file or a log switch it exits with 99.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include <windows.h>

int main() {
    const std::wstring commandLine = GetCommandLineW();
    // The text between `switchText` + '"' and the next '"'.
    const auto quoted = [&](const std::wstring& switchText) -> std::filesystem::path {
        const std::size_t start = commandLine.find(switchText + L"\"");
        const std::size_t from = start + switchText.size() + 1;
        return start == std::wstring::npos ? L""
                                           : commandLine.substr(from, commandLine.find(L'"', from) - from);
    };
    std::ifstream response(quoted(L"-f1"));
    if (!response || quoted(L"-f2").empty()) {
        return 99;
    }
    std::string log = "[Removal]\r\n", line;
    int exitCode = 0;
    while (std::getline(response, line)) {
        line = line.substr(0, line.find('\r'));
        const std::string key = line.substr(0, line.find('=')),
                          value = line.substr(std::min(key.size() + 1, line.size()));
        if (key == "result") {
            log += "ResultCode=" + value + "\r\n";
        } else if (key == "exit") {
            exitCode = std::stoi(value);
        } else if (key == "rename") {
            const std::string from = value.substr(0, value.find('|')), to = value.substr(from.size() + 1);
            MoveFileExA(from.c_str(), to.empty() ? nullptr : to.c_str(), MOVEFILE_DELAY_UNTIL_REBOOT);
        }
    }
    std::ofstream(quoted(L"-f2"), std::ios::binary) << log;
    return exitCode;
}
