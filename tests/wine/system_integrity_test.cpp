// The system-integrity actions against Wine: the verifier runs, with a
// stand-in verifier that records each run; the integrity check mode; and the
// unhook request, served by the test driver standing in for the control device.
#include <gtest/gtest.h>

#include <windows.h>
#include <sddl.h>

#include <optional>
#include <string>
#include <vector>

#include "action_session.h"
#include "frame/handles.h"
#include "integrity/run_nv_verify.h"
#include "library.h"
#include "machine.h"

namespace harness {
namespace {

using namespace setuputils;

const std::wstring kSessionManager = L"SYSTEM\\CurrentControlSet\\Control\\Session Manager\\";
const std::wstring kPatches = kSessionManager + L"NvnPatches";
const std::wstring kIntegrity = kSessionManager + L"NvnIntegrity";
const std::wstring kTestRecords = L"Software\\SetupUtilsTests";
const std::wstring kVerifierRuns = kTestRecords + L"\\Verifier";
const std::wstring kDeviceRequests = kTestRecords + L"\\NvnCtrl";
// Wine's 64-bit prefix always has a 32-bit system directory.
const std::wstring kSystem = L"C:\\windows\\system32\\";
const std::wstring kThirtyTwoBitSystem = L"C:\\windows\\syswow64\\";

template <typename Done>
bool WaitFor(Done done) {
    for (int i = 0; i < 100 && !done(); ++i) {
        Sleep(50);
    }
    return done();
}

// The stand-in verifier's record of its run on `image`: the command line and,
// after a tab, how many processes share its console (1: it was given one of
// its own). Nothing waits for the verifier, so its record comes in later.
std::optional<std::wstring> AwaitVerifierRun(const std::wstring& image) {
    auto run = [&] { return ReadRegistryString(HKEY_CURRENT_USER, kVerifierRuns, image); };
    WaitFor([&] { return run().has_value(); });
    return run();
}

class SystemIntegrityTest : public ::testing::Test {
protected:
    // Only the messages of the actions count, not the session's opening line.
    SystemIntegrityTest() { messages_.Clear(); }
    ~SystemIntegrityTest() override {
        SetKeyDacl(kIntegrity, L"D:(A;;KA;;;WD)");
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kIntegrity);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kPatches);
        DeleteRegistryTree(HKEY_LOCAL_MACHINE, kTestRecords);
        DeleteRegistryTree(HKEY_CURRENT_USER, kTestRecords);
    }

    ActionSession session_;
    MessageRecorder& messages_ = session_.messages();
    const std::wstring verifier_ = L"\"" + TestProgramPath(L"test_verifier.exe") + L"\"";
};

// Here every image runs twice; the single run of a 32-bit system, which Wine
// cannot show, is covered by the native tests of the command lines.
TEST_F(SystemIntegrityTest, VerifierRunsOnEachListedImageThirtyTwoBitDirectoryFirst) {
    auto write = [](const wchar_t* subkey, const wchar_t* name, const wchar_t* value) {
        WriteRegistryString(HKEY_LOCAL_MACHINE, kPatches + L"\\" + subkey, name, value);
    };
    // Enumerated in this order: the subkeys skipped come before an image that runs.
    write(L"ADVAPI32", L"Image Dll", L"advapi32.dll");
    write(L"ADVAPI32", L"Patch Dll64", L"nvpatch64.dll");
    write(L"Bare", L"Patch Dll64", L"nvpatch64.dll");
    write(L"Msi", L"Image Dll", L"msi.dll");
    write(L"MsiCapitals", L"Image Dll", L"MSI.DLL");

    // Leading switches of the verifier command stay in front of the added ones.
    EXPECT_EQ(session_.Run("UpdateSystemIntegrity", verifier_ + L" /q"), 0u);
    const std::wstring prefix = verifier_ + L" /q -addreg -file ";
    const std::vector<std::wstring> lines = {
        prefix + kThirtyTwoBitSystem + L"advapi32.dll", prefix + kSystem + L"advapi32.dll",
        prefix + kThirtyTwoBitSystem + L"MSI.DLL", prefix + kSystem + L"MSI.DLL"};
    // Each run is announced with its command line before it starts ...
    EXPECT_EQ(messages_.InfoTexts(), lines);
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
    // ... and starts as given, with a console of its own (no window).
    for (const std::wstring& line : lines) {
        EXPECT_EQ(AwaitVerifierRun(line.substr(prefix.size())), line + L"\t1");
    }
}

TEST_F(SystemIntegrityTest, NoPatchListNoRunAndUnreadableCommandFails) {
    EXPECT_EQ(session_.Run("UpdateSystemIntegrity", verifier_), 0u);
    EXPECT_TRUE(messages_.all().empty());

    // No session to read the verifier command from.
    WriteRegistryString(HKEY_LOCAL_MACHINE, kPatches + L"\\ADVAPI32", L"Image Dll", L"advapi32.dll");
    EXPECT_EQ(session_.library().Action("UpdateSystemIntegrity")(0),
              static_cast<UINT>(ERROR_INSTALL_FAILURE));
}

// Nothing waits for the verifier: its exit code (7, after two seconds) is never
// seen. Wine offers no way to make GetExitCodeProcess fail on a started process.
TEST_F(SystemIntegrityTest, RunNVVerifyReturnsTheExitCodeReadAtOnceOr1603) {
    const std::wstring line = verifier_ + L" -addreg -file C:\\probe.dll";
    EXPECT_EQ(RunNVVerify(session_.get(), line), static_cast<UINT>(STILL_ACTIVE));
    EXPECT_EQ(messages_.InfoTexts(), std::vector<std::wstring>{line});
    EXPECT_EQ(AwaitVerifierRun(L"C:\\probe.dll"), line + L"\t1");

    messages_.Clear();
    const std::wstring absent = L"\"" + TestProgramPath(L"absent.exe") + L"\" -addreg -file C:\\probe.dll";
    EXPECT_EQ(RunNVVerify(session_.get(), absent), static_cast<UINT>(ERROR_INSTALL_FAILURE));
    const auto info = messages_.OfType(INSTALLMESSAGE_INFO);
    ASSERT_EQ(info.size(), 2u);
    EXPECT_EQ(info[0].text, absent);
    // Wine puts "Info [1]. " in front of the template.
    EXPECT_TRUE(info[1].fields[0].ends_with(L"CreateProcess() failed: [1]")) << info[1].fields[0];
    EXPECT_EQ(info[1].fields[1], L"2");
    EXPECT_TRUE(messages_.OfType(INSTALLMESSAGE_ERROR).empty());
}

// The mode is written with no more access than KEY_WRITE; where even that is
// denied it stays as it was, and the action still succeeds.
TEST_F(SystemIntegrityTest, CheckModeIsTwoWhenOnZeroWhenOffAndNeverFails) {
    auto mode = [] { return ReadRegistryDword(HKEY_LOCAL_MACHINE, kIntegrity, L"CheckMode"); };
    EXPECT_EQ(session_.Run("CheckModeOn"), 0u);
    EXPECT_EQ(mode(), 2u);
    EXPECT_EQ(session_.Run("CheckModeOff"), 0u);
    EXPECT_EQ(mode(), 0u);

    ASSERT_EQ(SetKeyDacl(kIntegrity, L"D:(A;;0x20006;;;WD)"), ERROR_SUCCESS);
    EXPECT_EQ(session_.Run("CheckModeOn"), 0u);
    ASSERT_EQ(SetKeyDacl(kIntegrity, L"D:(A;;KR;;;WD)"), ERROR_SUCCESS);
    EXPECT_EQ(session_.Run("CheckModeOff"), 0u);
    EXPECT_EQ(mode(), 2u);
    EXPECT_TRUE(messages_.all().empty());
}

// The test driver, run as the service "NvnCtrl", serves the control device.
// Wine gives a driver no security context on open, so the access asked (none)
// is not seen; the share mode is.
TEST_F(SystemIntegrityTest, UnHookSendsOneBufferlessRequestToTheDeviceWhenItIsThere) {
    auto recorded = [](const wchar_t* name) {
        return ReadRegistryDword(HKEY_LOCAL_MACHINE, kDeviceRequests, name);
    };
    EXPECT_EQ(session_.Run("UnHookSystem"), 0u);

    TestDriverService control(L"NvnCtrl");
    control.Start();
    ASSERT_EQ(control.State(), static_cast<DWORD>(SERVICE_RUNNING));
    EXPECT_EQ(session_.Run("UnHookSystem"), 0u);
    EXPECT_EQ(recorded(L"Requests"), 1u);
    EXPECT_EQ(recorded(L"OpenShare"), static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE));
    EXPECT_EQ(recorded(L"IoControlCode"), 0x222000u);
    EXPECT_EQ(recorded(L"InputLength"), 0u);
    EXPECT_EQ(recorded(L"OutputLength"), 0u);
    EXPECT_TRUE(WaitFor([&] { return recorded(L"Closes") == 1u; })) << "the device handle stays open";
    EXPECT_TRUE(messages_.all().empty());
}

} // namespace
} // namespace harness
