#include "integrity/verifier_commands.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace setuputils {
namespace {

using Lines = std::vector<std::wstring>;

TEST(VerifierCommands, PrefixKeepsTheCommandAndItsSwitchesAndEndsInABlank) {
    EXPECT_EQ(VerifierCommandPrefix(L"\"C:\\P F\\nvverify.exe\" /q"),
              L"\"C:\\P F\\nvverify.exe\" /q -addreg -file ");
    EXPECT_EQ(VerifierCommandPrefix(L""), L" -addreg -file ");
}

// Only these exact spellings are left out: case, surrounding blanks or a path make another name.
TEST(VerifierCommands, ExcludesTheListedImagesByExactName) {
    for (const wchar_t* name :
         {L"msi.dll", L"ExSec32.dll", L"mailcomm.dll", L"mso.dll", L"msxml5.dll", L"outlmime.dll"}) {
        EXPECT_TRUE(IsExcludedImage(name)) << name;
    }
    for (const wchar_t* name :
         {L"MSI.DLL", L"Msi.dll", L"exsec32.dll", L"MSO.dll", L"msi.dll ", L" msi.dll", L"msi",
          L"C:\\windows\\system32\\msi.dll", L"msxml6.dll", L"advapi32.dll", L""}) {
        EXPECT_FALSE(IsExcludedImage(name)) << name;
    }
}

TEST(VerifierCommands, ThirtyTwoBitDirectoryRunsFirstAndOnlyWhenThereIsOne) {
    const std::wstring prefix = VerifierCommandPrefix(L"v.exe");
    EXPECT_EQ(
        VerifierCommandLines(prefix, L"C:\\Windows\\system32", L"C:\\Windows\\SysWOW64", L"advapi32.dll"),
        (Lines{L"v.exe -addreg -file C:\\Windows\\SysWOW64\\advapi32.dll",
               L"v.exe -addreg -file C:\\Windows\\system32\\advapi32.dll"}));
    // A 32-bit system has no 32-bit system directory of its own.
    EXPECT_EQ(VerifierCommandLines(prefix, L"C:\\Windows\\system32", L"", L"MSI.DLL"),
              (Lines{L"v.exe -addreg -file C:\\Windows\\system32\\MSI.DLL"}));
}

} // namespace
} // namespace setuputils
