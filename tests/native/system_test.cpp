// The rules of the service, security-package, previous-version, verifier and seeding actions.
#include "integrity/verifier_commands.h"
#include "legacy/uninstall_rules.h"
#include "rng/seeding_rules.h"
#include "services/service_fields.h"
#include "sspi/package_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>

namespace setuputils {
namespace {

using namespace std::string_literals;

// Missing fields are empty, the last takes the rest. Only "nvcsphclm" starts on demand; any flag makes a
// service non-interactive; boot, system and disabled services are started.
TEST(ServiceFields, CustomActionDataSplitsAtTheFirstSlashesAndHostServiceTypes) {
    using Case = std::pair<const wchar_t*, const wchar_t*>;
    for (const auto& [data, fields] :
         {Case{L"a/b", L"a|b||"}, {L"a//", L"a|||"}, {L"a/b/c/d/e/", L"a|b|c|d/e/"}, {L"", L"|||"}}) {
        const CreateServiceData f = SplitCreateServiceData(data);
        EXPECT_EQ(f.name + L"|" + f.displayName + L"|" + f.nonInteractive + L"|" + f.group, fields);
    }
    for (const auto& [data, fields] : {Case{L"nvcsp/Users/x", L"nvcsp|Users/x"}, {L"/g", L"|g"}}) {
        const RemoveServiceData f = SplitRemoveServiceData(data);
        EXPECT_EQ(f.name + L"|" + f.group, fields);
    }
    for (const wchar_t* other : {L"NVCSPHCLM", L"nvcsphclm ", L""}) {
        EXPECT_EQ(HostServiceStartType(other), kServiceAutoStart) << other;
    }
    for (std::uint32_t startType = 0; startType < 5; ++startType) {
        EXPECT_EQ(NeedsAutomaticStart(startType), startType == 0 || startType == 1 || startType == 4)
            << startType;
    }
}

// Cut at the first " -p"; own-process (16), other bits kept; without " -p" only a shared service changes.
TEST(ServiceFields, UnprotectedConfigurationCutsTheOptionAndOwnsTheProcess) {
    using Case = std::tuple<const wchar_t*, std::uint32_t, const wchar_t*>;
    const Case cases[] = {{L"svc -k n -p -s x", 0x10, L"svc -k n 16"},
                          {L"svc -k n", 0x120, L"svc -k n 272"},
                          {L"svc -k n", 0x110, L"none"}};
    for (const auto& [path, type, expected] : cases) {
        const auto change = UnprotectedConfiguration(path, type);
        EXPECT_EQ(change ? change->binaryPath + L" " + std::to_wstring(change->type) : L"none", expected)
            << path << " " << type;
    }
}

// As "|"-terminated entries: in before the first empty entry (where the system stops reading), else before
// the last package; listed already (and read) stays as spelled, other copies go.
TEST(PackageList, InsertAndRemoveAsTheAuthorityListNeedsThem) {
    auto edit = [](std::wstring data, bool insert) {
        std::replace(data.begin(), data.end(), L'|', L'\0');
        auto equal = [](const std::wstring& a, const std::wstring& b) {
            return wcscasecmp(a.c_str(), b.c_str()) == 0;
        };
        std::wstring edited = JoinPackageList(EditPackageList(SplitPackageList(data), L"nv", insert, equal));
        std::replace(edited.begin(), edited.end(), L'\0', L'|');
        return edited;
    };
    using Case = std::pair<const wchar_t*, const wchar_t*>;
    const Case inserts[] = {{L"a|NV|b||", L"a|NV|b||"},
                            {L"Nv|a|nv||", L"Nv|a||"},
                            {L"a|b|", L"a|nv|b|"},
                            {L"a|b", L"a|nv|b|"},
                            {L"nv2||nv|b||", L"nv2|nv||b||"}};
    for (const auto& [data, expected] : inserts) {
        EXPECT_EQ(edit(data, true), expected) << data;
    }
    for (const auto& [data, expected] : {Case{L"a|b||", L"a|b||"}, {L"", L"|"}}) {
        EXPECT_EQ(edit(data, false), expected) << data;
    }
}

// The number after the first marker as "%d" reads it, up to the first NUL; no blank added to the command.
TEST(UninstallRules, ResultCodeIsTheNumberAfterTheFirstMarkerAndTheSwitchesAreAppended) {
    EXPECT_EQ(UninstallCommandLine(L"setup.exe", L"a", L"b"), L"setup.exe-s -f1\"a\" -f2\"b\"");
    EXPECT_EQ(FindResultCode("x ResultCode= \t+12abc"), 12);
    for (const std::string& log : {"Result\0Code=1\r\nResultCode=2"s, "ResultCode =1\r\nresultcode=1"s}) {
        EXPECT_EQ(FindResultCode(log), std::nullopt) << testing::PrintToString(log);
    }
}

// Well formed (even bytes, two final NULs): one NUL dropped; else status 13 and the data to its first NUL.
TEST(UninstallRules, PendingRenamesKeepTheirInnerNulsOnlyWhenWellFormed) {
    const std::wstring renames = L"\\??\\a\0\0\\??\\b\0\\??\\c\0\0"s, kept = renames.substr(0, 19);
    using Case = std::tuple<std::wstring, std::size_t, std::uint32_t, std::wstring>; // read, bytes, result
    const Case cases[] = {{renames, 40, 0, kept}, {renames, 41, 13, L"\\??\\a"}, {L"ab\0"s, 6, 13, L"ab"}};
    for (const auto& [characters, bytes, status, operations] : cases) {
        const PendingRenames result = KeepPendingRenames(characters, bytes);
        EXPECT_EQ(result.status, status) << testing::PrintToString(characters);
        EXPECT_EQ(result.operations, operations) << testing::PrintToString(characters);
    }
    EXPECT_EQ(MergePendingRenames(L"\\??\\a\0\0"s, L"\\??\\b\0"s), L"\\??\\a\0\0\\??\\b\0"s);
}

using Lines = std::vector<std::wstring>;

// Only these exact spellings are left out.
TEST(VerifierCommands, ExcludedImagesByExactNameAndCommandLines) {
    for (const wchar_t* name :
         {L"msi.dll", L"ExSec32.dll", L"mailcomm.dll", L"mso.dll", L"msxml5.dll", L"outlmime.dll"}) {
        EXPECT_TRUE(IsExcludedImage(name)) << name;
    }
    EXPECT_FALSE(IsExcludedImage(L"MSI.DLL"));
    // A system without a 32-bit system directory runs each image once.
    EXPECT_EQ(VerifierCommandLines(L"v ", L"C:\\W\\system32", L"", L"MSI.DLL"),
              (Lines{L"v C:\\W\\system32\\MSI.DLL"}));
}

// Split as far as the data has slashes, the last field taking the rest; no entry name is the default one.
TEST(SeedingRules, DataSplitsAtSlashesAsFarAsItHasFieldsAndFlagsAreLittleEndian) {
    for (const auto& [data, fields] :
         {std::pair(L"a//b /c", L"a|/b /c"), {L"rng.exe", L"InstallCSP|rng.exe"}, {L"/c", L"InstallCSP|c"}}) {
        const RunOnceRequest r = SplitRunOnceRequest(data);
        EXPECT_EQ(r.entryName + L"|" + r.command, fields);
    }
    for (const auto& [data, fields] :
         {std::pair(L"C/T/M/N", L"C|T|M/N"), {L"C/M", L"C||M"}, {L"M", L"||M"}, {L"//", L"||"}}) {
        const SeedingWarning w = SplitSeedingWarning(data);
        EXPECT_EQ(w.caption + L"|" + w.ownerTitle + L"|" + w.message, fields);
    }
    // Flags of up to four bytes, little-endian.
    const std::vector<std::uint8_t> high = {0x02, 0, 0, 0x80}, shorter = {0x02};
    EXPECT_EQ(SeedFlagsFromData(kDwordValueType, high)->value, 0x80000002u);
    EXPECT_TRUE(IsSeeded(0, SeedFlagsFromData(kDwordValueType, shorter)));
}

} // namespace
} // namespace setuputils
