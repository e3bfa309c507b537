#include "integrity/verifier_commands.h"

#include <algorithm>
#include <array>

namespace setuputils {
namespace {

constexpr std::array<std::wstring_view, 6> kExcludedImages = {L"msi.dll", L"ExSec32.dll", L"mailcomm.dll",
                                                              L"mso.dll", L"msxml5.dll",  L"outlmime.dll"};

std::wstring CommandLine(std::wstring_view prefix, std::wstring_view directory, std::wstring_view imageName) {
    std::wstring line(prefix);
    line.append(directory).append(L"\\").append(imageName);
    return line;
}

} // namespace

std::wstring VerifierCommandPrefix(std::wstring_view verifierCommand) {
    std::wstring prefix(verifierCommand);
    prefix.append(kVerifierAddRegSwitches);
    return prefix;
}

bool IsExcludedImage(std::wstring_view imageName) {
    return std::find(kExcludedImages.begin(), kExcludedImages.end(), imageName) != kExcludedImages.end();
}

std::vector<std::wstring> VerifierCommandLines(std::wstring_view prefix, std::wstring_view systemDirectory,
                                               std::wstring_view thirtyTwoBitSystemDirectory,
                                               std::wstring_view imageName) {
    std::vector<std::wstring> lines;
    if (!thirtyTwoBitSystemDirectory.empty()) {
        lines.push_back(CommandLine(prefix, thirtyTwoBitSystemDirectory, imageName));
    }
    lines.push_back(CommandLine(prefix, systemDirectory, imageName));
    return lines;
}

} // namespace setuputils
