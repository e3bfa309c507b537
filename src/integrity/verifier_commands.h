// The verifier runs that record a patched system image: which images are left
// out and which command lines run for the others.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace setuputils {

// Put after the verifier command (program path and its own leading switches);
// the image path follows it.
inline constexpr std::wstring_view kVerifierAddRegSwitches = L" -addreg -file ";

// The verifier command followed by the switches that record an image.
std::wstring VerifierCommandPrefix(std::wstring_view verifierCommand);

// Images the verifier is never run on. The name is compared as written:
// "msi.dll" is left out, "MSI.DLL" is not.
bool IsExcludedImage(std::wstring_view imageName);

// The command lines for one image, in the order they run: first the image in
// the 32-bit system directory, when there is one (empty on a 32-bit system),
// then the image in the system directory.
std::vector<std::wstring> VerifierCommandLines(std::wstring_view prefix, std::wstring_view systemDirectory,
                                               std::wstring_view thirtyTwoBitSystemDirectory,
                                               std::wstring_view imageName);

} // namespace setuputils
