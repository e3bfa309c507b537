// The service actions against Wine's service manager: the host service made
// and removed again, shared-host services turned into own-process ones, the
// smart-card service's start, and the interactive-services switch.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "action_session.h"
#include "frame/handles.h"
#include "library.h"
#include "machine.h"
#include "snapshot.h"

namespace harness {
namespace {

using setuputils::ServiceHandle;
using Fields = std::vector<std::vector<std::wstring>>;

ServiceHandle Open(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    return ServiceHandle(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
}

DWORD ProcessId(const std::wstring& name) {
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    QueryServiceStatusEx(Open(name).get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                         sizeof(status), &size);
    return status.dwProcessId;
}

// A service of the stand-in program (test_service.cpp), whose command line is
// its name and then `options`, with error control 0; started when `running`,
// stopped and deleted at the end of the test.
struct TestService {
    TestService(const std::wstring& serviceName, DWORD type, DWORD startType, const std::wstring& options,
                bool running = false)
        : name(serviceName), path(L"\"" + TestProgramPath(L"test_service.exe") + L"\" " + name + options) {
        ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        EXPECT_TRUE(ServiceHandle(CreateServiceW(manager.get(), name.c_str(), name.c_str(),
                                                 SERVICE_ALL_ACCESS, type, startType, SERVICE_ERROR_IGNORE,
                                                 path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)));
        EXPECT_TRUE(!running || StartServiceW(Open(name).get(), 0, nullptr)) << GetLastError();
        EXPECT_EQ(WaitForServiceState(name, running ? SERVICE_RUNNING : SERVICE_STOPPED),
                  running ? SERVICE_RUNNING : SERVICE_STOPPED);
    }
    ~TestService() { StopAndDeleteService(name); }

    std::wstring name;
    std::wstring path;
};

class ServiceActionTest : public ::testing::Test {
protected:
    ~ServiceActionTest() override {
        StopAndDeleteService(L"nvcsphclm");
        StopAndDeleteService(L"nvcsp");
    }
    UINT Run(const char* action, const std::wstring& data = L"") { return session_.Run(action, data); }
    Fields Errors() { return session_.messages().FieldsOf(INSTALLMESSAGE_ERROR); }

    ActionSession session_;
};
using MsiCreateServiceTest = ServiceActionTest;
using UnprotectServiceTest = ServiceActionTest;
using SCardSvrTest = ServiceActionTest;
using InteractiveServicesTest = ServiceActionTest;
using InteractiveServicesOnWindows10 = ServiceActionTest;
using InteractiveServicesOnWindows7 = ServiceActionTest;

// The services are only created: Wine has no "nvcsp" group for its svchost to
// run. Wine's NetLocalGroupAdd and NetLocalGroupDel do nothing and answer 0,
// so whether the local group is made or deleted cannot be seen here.
TEST_F(MsiCreateServiceTest, HelperStartsOnDemandOthersAutomaticallyAndADuplicateFails) {
    const std::wstring hostAndGroup = L"|%SystemRoot%\\system32\\svchost.exe -k nvcsp|SmartCardGroup|";
    EXPECT_EQ(Run("MsiCreateService", L"nvcsphclm/Norvane helper/1/Card Users"), 0u);
    EXPECT_EQ(ServiceConfigText(L"nvcsphclm"), L"0x10 3 1" + hostAndGroup + L"Norvane helper");
    EXPECT_EQ(Run("MsiCreateService", L"nvcsp"), 0u);
    EXPECT_EQ(ServiceConfigText(L"nvcsp"), L"0x110 2 1" + hostAndGroup);
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(Run("MsiCreateService", L"nvcsp/Again"), 1603u);
    EXPECT_EQ(Errors(), (Fields{{L"1923", L"nvcsp", L"1073"}}));
    EXPECT_EQ(ServiceConfigText(L"nvcsp"), L"0x110 2 1" + hostAndGroup)
        << "the service there stays as it was";
}

// The host service cannot run under Wine; a running stand-in shows the stop.
// Deleted, a service is gone only once its process has ended: stopped.
TEST_F(MsiCreateServiceTest, RollbackStopsAndDeletesTheServiceAndFailsSilentlyWhenThereIsNone) {
    TestService service(L"NvnRollback", SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, L"", true);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), 0u);
    EXPECT_EQ(WaitForServiceState(L"NvnRollback", 0), 0u);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), 1603u);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback"), 1603u);
    EXPECT_TRUE(Errors().empty());
}

// A shared or protected (" -p") service becomes an own-process one without
// the option; a running one is stopped (the stand-in takes half a second, so
// the action must wait) and runs again in a new process, a stopped one stays
// stopped: a start would show at once as pending or running.
TEST_F(UnprotectServiceTest, SharedOrProtectedServicesGetTheirOwnProcess) {
    struct Case {
        DWORD type, startType;
        const wchar_t* options;
        bool running;
        const wchar_t* config; // then the path without " -p", no group and the name
    };
    const Case cases[] = {
        {SERVICE_WIN32_SHARE_PROCESS, SERVICE_DEMAND_START, L" -k nvcsp -p", true, L"0x10 3 0|"},
        {SERVICE_WIN32_SHARE_PROCESS | SERVICE_INTERACTIVE_PROCESS, SERVICE_AUTO_START, L" -k nvcsp", false,
         L"0x110 2 0|"},
        {SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, L" -k nvcsp", true, L"0x10 3 0|"}};
    for (const Case& c : cases) {
        TestService service(L"NvnProtected", c.type, c.startType, c.options, c.running);
        const DWORD before = ProcessId(service.name);
        EXPECT_EQ(Run("UnprotectService", service.name), 0u);
        const std::wstring path = service.path.substr(0, service.path.find(L" -p"));
        EXPECT_EQ(ServiceConfigText(service.name), c.config + path + L"||" + service.name) << c.options;
        if (c.running) {
            EXPECT_EQ(WaitForServiceState(service.name, SERVICE_RUNNING), DWORD{SERVICE_RUNNING})
                << c.options;
            EXPECT_NE(ProcessId(service.name), before) << c.options;
        } else {
            EXPECT_EQ(ServiceState(service.name), DWORD{SERVICE_STOPPED});
        }
    }
    EXPECT_EQ(Run("UnprotectService", L"NvnAbsent"), 0u);
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(session_.library().Action("UnprotectService")(0), 1603u) << "no CustomActionData";
}

// Wine has no smart-card service of its own: a stand-in takes its name. One
// that starts on demand is left as it is, stopped: a start would show at once.
TEST_F(SCardSvrTest, DisabledBecomesAutomaticAndRunsOnDemandIsLeftAlone) {
    EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
    for (const DWORD startType : {SERVICE_DISABLED, SERVICE_DEMAND_START}) {
        TestService service(L"SCardSvr", SERVICE_WIN32_OWN_PROCESS, startType, L"");
        const Watched watched = {{}, {service.name}, {}};
        const Snapshot before = TakeSnapshot(watched);
        EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
        if (startType == SERVICE_DISABLED) {
            EXPECT_EQ(WaitForServiceState(service.name, SERVICE_RUNNING), DWORD{SERVICE_RUNNING});
            EXPECT_EQ(ServiceConfigText(service.name), L"0x10 2 0|" + service.path + L"||SCardSvr");
        } else {
            EXPECT_EQ(SnapshotChanges(before, TakeSnapshot(watched)), Lines{});
        }
    }
    EXPECT_TRUE(Errors().empty());
}

TEST_F(InteractiveServicesTest, EnableClearsTheSystemSwitch) {
    const wchar_t key[] = L"SYSTEM\\CurrentControlSet\\Control\\Windows";
    WriteRegistryDword(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices", 1);
    EXPECT_EQ(Run("EnableInteractiveServices"), 0u);
    EXPECT_EQ(ReadRegistryDword(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices"), 0u);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices");
}

// Interactive services are forbidden by property from Windows 10 on.
TEST_F(InteractiveServicesOnWindows10, AreForbiddenByProperty) {
    ASSERT_EQ(ReportedMajorVersion(), 10u);
    EXPECT_EQ(Run("SetNoInteractiveServices"), 0u);
    EXPECT_EQ(session_.session().Property(L"NOINTERACTIVESERVICES"), L"1");
}

TEST_F(InteractiveServicesOnWindows7, AreLeftAllowed) {
    ASSERT_EQ(ReportedMajorVersion(), 6u);
    EXPECT_EQ(Run("SetNoInteractiveServices"), 0u);
    EXPECT_EQ(session_.session().Property(L"NOINTERACTIVESERVICES"), L"");
}

} // namespace
} // namespace harness
