// The system-integrity actions against Wine: the verifier runs, with a
// stand-in verifier that records each run; the integrity check mode; and the
// unhook request, served by the test driver standing in for the control device.
#include <gtest/gtest.h>

#include <optional>
#include <tuple>
#include <string>
#include <vector>

#include "action_session.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"

namespace harness {
namespace {

const HKEY kHklm = HKEY_LOCAL_MACHINE;
const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
const std::wstring kPatches = kSessionManager + L"NvnPatches\\";
const std::wstring kIntegrity = kSessionManager + L"NvnIntegrity";
const std::wstring kTestRecords = L"Software\\SetupUtilsTests";

class SystemIntegrityTest : public ::testing::Test {
protected:
    SystemIntegrityTest() { messages_.Clear(); } // only the actions' messages count
    ~SystemIntegrityTest() override {
        SetKeyDacl(kIntegrity, L"D:(A;;KA;;;WD)");
        for (const std::wstring& path : {kIntegrity, kPatches, kTestRecords}) {
            DeleteRegistryTree(kHklm, path);
        }
        DeleteRegistryTree(HKEY_CURRENT_USER, kTestRecords);
    }

    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
};

// The stand-in's record of its run on `image` (test_verifier.cpp): the command
// line and, after a tab, 1 when it has a console of its own. Nothing waits for
// the verifier, so its record comes in later.
std::optional<std::wstring> AwaitVerifierRun(const std::wstring& image) {
    const auto run = [&] {
        return ReadRegistryString(HKEY_CURRENT_USER, kTestRecords + L"\\Verifier", image);
    };
    WaitUntil([&] { return run().has_value(); });
    return run();
}

// Wine's 64-bit prefix always has a 32-bit system directory, so every image
// runs twice here (a 32-bit system's single run: native tests). The subkeys
// skipped (no image, an excluded one) are enumerated before one that runs.
TEST_F(SystemIntegrityTest, VerifierRunsOnEachListedImageThirtyTwoBitDirectoryFirst) {
    const std::wstring verifier = L"\"" + TestProgramPath(L"test_verifier.exe") + L"\"";
    EXPECT_EQ(session_.Run("UpdateSystemIntegrity", verifier), 0u);
    EXPECT_TRUE(messages_.all().empty()) << "no list, no run";
    for (const auto& [subkey, name, image] : {std::tuple{L"ADVAPI32", L"Image Dll", L"advapi32.dll"},
                                              {L"ADVAPI32", L"Patch Dll64", L"nvpatch64.dll"},
                                              {L"Bare", L"Patch Dll64", L"nvpatch64.dll"},
                                              {L"Msi", L"Image Dll", L"MSI.DLL"},
                                              {L"Excluded", L"Image Dll", L"msxml5.dll"}}) {
        WriteRegistryString(kHklm, kPatches + subkey, name, image);
    }
    // Leading switches of the verifier command stay in front of the added ones.
    EXPECT_EQ(session_.Run("UpdateSystemIntegrity", verifier + L" /q"), 0u);
    const std::wstring prefix = verifier + L" /q -addreg -file ";
    const std::vector<std::wstring> lines = {
        prefix + L"C:\\windows\\syswow64\\advapi32.dll", prefix + L"C:\\windows\\system32\\advapi32.dll",
        prefix + L"C:\\windows\\syswow64\\MSI.DLL", prefix + L"C:\\windows\\system32\\MSI.DLL"};
    // Each run is announced before it starts, and starts as given, with a
    // console of its own (no window).
    EXPECT_EQ(messages_.InfoTexts(), lines);
    for (const std::wstring& line : lines) {
        EXPECT_EQ(AwaitVerifierRun(line.substr(prefix.size())), line + L"\t1");
    }
    // A verifier that cannot start is reported (Wine puts "Info [1]. " in
    // front of the template); its result does not matter.
    messages_.Clear();
    DeleteRegistryTree(kHklm, kPatches + L"ADVAPI32");
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\"";
    EXPECT_EQ(session_.Run("UpdateSystemIntegrity", absent), 0u);
    const auto info = messages_.OfType(INSTALLMESSAGE_INFO);
    ASSERT_EQ(info.size(), 4u);
    EXPECT_EQ(info[0].text, absent + L" -addreg -file C:\\windows\\syswow64\\MSI.DLL");
    EXPECT_TRUE(info[1].fields[0].ends_with(L"CreateProcess() failed: [1]")) << info[1].fields[0];
    EXPECT_EQ(info[1].fields[1], L"2");
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    EXPECT_EQ(session_.library().Action("UpdateSystemIntegrity")(0), 1603u) << "no session, no command";
}

// The mode is written with no more access than KEY_WRITE; where even that is
// denied it stays as it was, and the action still succeeds.
TEST_F(SystemIntegrityTest, CheckModeIsTwoWhenOnZeroWhenOffAndNeverFails) {
    using Step = std::tuple<const char*, const wchar_t*, std::optional<DWORD>>; // nullopt: unreadable
    for (const auto& [action, access, mode] : {Step{"CheckModeOn", L"", 2}, Step{"CheckModeOff", L"", 0},
                                               Step{"CheckModeOn", L"D:(A;;0x20006;;;WD)", std::nullopt},
                                               Step{"CheckModeOff", L"D:(A;;KR;;;WD)", 2}}) {
        ASSERT_TRUE(*access == L'\0' || SetKeyDacl(kIntegrity, access) == 0);
        EXPECT_EQ(session_.Run(action), 0u) << action;
        EXPECT_EQ(ReadRegistryDword(kHklm, kIntegrity, L"CheckMode"), mode) << action;
    }
    EXPECT_TRUE(messages_.all().empty());
}

// The test driver, run as the service "NvnCtrl", serves the control device and
// records the request. Wine gives a driver no security context on open, so the
// access asked (none) is not seen; the share mode (read and write) is.
TEST_F(SystemIntegrityTest, UnHookSendsOneBufferlessRequestToTheDeviceWhenItIsThere) {
    EXPECT_EQ(session_.Run("UnHookSystem"), 0u);
    TestDriverService control(L"NvnCtrl");
    control.Start();
    ASSERT_EQ(control.State(), DWORD{SERVICE_RUNNING});
    EXPECT_EQ(session_.Run("UnHookSystem"), 0u);
    const auto recorded = [](const wchar_t* name) {
        return ReadRegistryDword(kHklm, kTestRecords + L"\\NvnCtrl", name);
    };
    for (const auto& [name, value] : {std::pair{L"Requests", 1u},
                                      {L"OpenShare", 3u},
                                      {L"IoControlCode", 0x222000u},
                                      {L"InputLength", 0u},
                                      {L"OutputLength", 0u}}) {
        EXPECT_EQ(recorded(name), value) << name;
    }
    EXPECT_TRUE(WaitUntil([&] { return recorded(L"Closes") == 1u; })) << "the device handle stays open";
    EXPECT_TRUE(messages_.all().empty());
}

} // namespace
} // namespace harness
