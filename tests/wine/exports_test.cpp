// The entry points of setuputils.dll as the installer and rundll32 find them.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include <windows.h>

#include "frame/product_codes.h"
#include "action_session.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"
#include "test_package.h"

namespace harness {
namespace {

// Names in the export directory of a loaded module.
std::vector<std::string> ExportedNames(HMODULE module) {
    auto* base = reinterpret_cast<const BYTE*>(module);
    auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const auto& entry = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    std::vector<std::string> names;
    if (entry.Size == 0) {
        return names;
    }
    auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + entry.VirtualAddress);
    auto* rvas = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
    for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
        names.emplace_back(reinterpret_cast<const char*>(base + rvas[i]));
    }
    return names;
}

TEST(ExportsLibrary, EntryPointsUnderTheirExactNames) {
    SetupUtilsLibrary library;
    const std::vector<std::string> expected = {"AddNVCertStore",
                                               "AddNewFeatures",
                                               "AddRemovedComponents",
                                               "AllAppPackageSecurity",
                                               "AnotherCSPDetected",
                                               "CheckDll",
                                               "CheckModeOff",
                                               "CheckModeOn",
                                               "CheckVipNet",
                                               "ClearWrongMachineCertificateProperties",
                                               "ClearWrongUserCertificateProperties",
                                               "DelAllReg",
                                               "DelNVCSPs",
                                               "DelNVCryptographyKey",
                                               "DeleteShortcuts",
                                               "EnableInteractiveServices",
                                               "FixDefaultProvider",
                                               "FixPrivateKeyLinks",
                                               "GetCSPProgramW6432Dir",
                                               "GetOldRPProductID",
                                               "GetOldWLProductID",
                                               "HiberbootDisable",
                                               "HideNVCSPRIfInstalled",
                                               "HideNVCSPRIfKC",
                                               "InitializeHardRng",
                                               "InitializeHardRngUser",
                                               "KSCheckDeleteFlag",
                                               "KSCleanup",
                                               "KSInstCleanUp",
                                               "KSInstInstall",
                                               "KSInstRollback",
                                               "KSInstUninstall",
                                               "KSInstallW",
                                               "KSInstallWW",
                                               "KSProcess",
                                               "KSUninstallW",
                                               "KSUninstallWW",
                                               "MigrateReaders",
                                               "MsiCreateService",
                                               "MsiCreateServiceRollback",
                                               "MsiGetShortPathName",
                                               "NVRegisterUser",
                                               "NvnLink",
                                               "NvnRelocate",
                                               "NvnRevert",
                                               "NvnUnlink",
                                               "ProcessPropertyEx",
                                               "ProcessRegReaders",
                                               "RebuildIconCache",
                                               "RegCreateSlot0Entry",
                                               "RemoveAppPaths",
                                               "RunDllW",
                                               "SetNoInteractiveServices",
                                               "SetRegistryLow",
                                               "SetRunOnceEveryone",
                                               "SetSCardSvrAutoStart",
                                               "SetupCSPTest",
                                               "SslRegInstall",
                                               "SslRegRollback",
                                               "SslRegUninstall",
                                               "SslRegister",
                                               "StrengthenedKeyWarning",
                                               "TlsRegUninstall",
                                               "UnHookSystem",
                                               "UninstallCSP2",
                                               "UninstallSmartCard",
                                               "UninstallTLS2",
                                               "UnprotectService",
                                               "UpdateSystemIntegrity"};
    for (const auto& name : expected) {
        EXPECT_NE(library.Find(name.c_str()), nullptr) << name;
    }
    HMODULE module = GetModuleHandleW(SetupUtilsLibrary::Path().c_str());
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(ExportedNames(module), expected);
    // The rollback of an installation is the removal itself, under a second name;
    // rundll32 reaches the wide command-line entries also when named with their W.
    EXPECT_EQ(library.Find("KSInstRollback"), library.Find("KSInstUninstall"));
    EXPECT_EQ(library.Find("KSInstallWW"), library.Find("KSInstallW"));
    EXPECT_EQ(library.Find("KSUninstallWW"), library.Find("KSUninstallW"));
}

class ExportsSession : public ::testing::Test {
protected:
    ExportsSession() {
        session_->Cost();
        messages_.Clear();
    }

    ActionSession actions_;
    TestSession* session_ = &actions_.session();
    const SetupUtilsLibrary& library_ = actions_.library();
    MessageRecorder& messages_ = actions_.messages();
};

TEST_F(ExportsSession, AddRemovedComponentsAndRunDllDoNothing) {
    session_->SetProperty(L"MARKER", L"before");
    EXPECT_EQ(library_.Action("AddRemovedComponents")(session_->get()), 0u);
    EXPECT_TRUE(messages_.all().empty());
    EXPECT_EQ(session_->Property(L"MARKER"), L"before");

    RunDllEntry runDll = library_.CommandLineEntry("RunDllW");
    wchar_t empty[] = L"";
    wchar_t garbage[] = L"\"unterminated /x {6C1E5F0A-3B7D} %s%s%n \x0001\xFFFF";
    runDll(nullptr, nullptr, nullptr, SW_HIDE);
    runDll(nullptr, nullptr, empty, SW_SHOWNORMAL);
    runDll(nullptr, nullptr, garbage, SW_HIDE);
    EXPECT_TRUE(messages_.all().empty());
}

// Without an NVDriverPackages table there is nothing to schedule, and without
// the reboot marker (a fresh prefix has none) nothing to clean up.
TEST_F(ExportsSession, DriverActionsWithoutDriverPackagesDoNothing) {
    const std::wstring marker =
        std::wstring(setuputils::kUninstallKeyPath) + setuputils::kDriverInstallerProductCode;
    ASSERT_FALSE(RegistryKeyExists(HKEY_LOCAL_MACHINE, marker));
    for (const char* action : {"KSProcess", "KSCheckDeleteFlag", "KSCleanup"}) {
        SCOPED_TRACE(action);
        EXPECT_EQ(library_.Action(action)(session_->get()), 0u);
        EXPECT_TRUE(messages_.StartedActions().empty());
        EXPECT_EQ(messages_.all().size(), 0u);
    }
    // Scheduling would have set the data property of a deferred driver action.
    for (const wchar_t* property : {L"KSInstall", L"KSRollback", L"KSUninstall", L"KSInstall64",
                                    L"KSRollback64", L"KSUninstall64", L"DELETEFLAG"}) {
        EXPECT_EQ(session_->Property(property), L"") << property;
    }
    EXPECT_FALSE(MsiGetMode(session_->get(), MSIRUNMODE_REBOOTATEND));
}

} // namespace
} // namespace harness
