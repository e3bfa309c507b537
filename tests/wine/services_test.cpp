// The service actions against Wine's service manager: the host service made
// and removed again, shared-host services turned into own-process ones, the
// smart-card service's start, and the interactive-services switch.
#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <vector>

#include <windows.h>

#include "action_session.h"
#include "frame/handles.h"
#include "library.h"
#include "machine.h"
#include "message_recorder.h"

namespace harness {
namespace {

using setuputils::LocalMemory;
using setuputils::ServiceHandle;

constexpr UINT kFailure = ERROR_INSTALL_FAILURE;

ServiceHandle Open(const std::wstring& name) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    return ServiceHandle(OpenServiceW(manager.get(), name.c_str(), SERVICE_ALL_ACCESS));
}

// "type start-type error-control|binary path|load order group|display name"
// of `name`; empty when it cannot be read.
std::wstring Config(const std::wstring& name) {
    ServiceHandle service = Open(name);
    DWORD size = 0;
    QueryServiceConfigW(service.get(), nullptr, 0, &size);
    LocalMemory buffer(LocalAlloc(LPTR, size));
    auto* config = static_cast<QUERY_SERVICE_CONFIGW*>(buffer.get());
    if (!config || !QueryServiceConfigW(service.get(), config, size, &size)) {
        return L"";
    }
    wchar_t numbers[40];
    std::swprintf(numbers, 40, L"%#lx %lu %lu|", config->dwServiceType, config->dwStartType,
                  config->dwErrorControl);
    return numbers + std::wstring(config->lpBinaryPathName) + L"|" + config->lpLoadOrderGroup + L"|" +
           config->lpDisplayName;
}

SERVICE_STATUS_PROCESS Status(const std::wstring& name) {
    SERVICE_STATUS_PROCESS status{};
    DWORD size = 0;
    QueryServiceStatusEx(Open(name).get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                         sizeof(status), &size);
    return status;
}

// Waits up to five seconds for `name` to reach `state`; true when it did.
bool Reaches(const std::wstring& name, DWORD state) {
    return WaitForServiceState(name, state) == state;
}

// A service of the stand-in program, whose command line is its name and then
// `options`, with error control 0; stopped and deleted at the end of the test.
struct TestService {
    TestService(const std::wstring& serviceName, DWORD type, DWORD startType, const std::wstring& options)
        : name(serviceName),
          path(L"\"" + TestProgramPath(L"test_service.exe") + L"\" " + serviceName + options) {
        ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
        EXPECT_TRUE(ServiceHandle(CreateServiceW(manager.get(), name.c_str(), name.c_str(),
                                                 SERVICE_ALL_ACCESS, type, startType, SERVICE_ERROR_IGNORE,
                                                 path.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr)))
            << GetLastError();
    }
    ~TestService() { StopAndDeleteService(name); }
    void Start() const {
        ASSERT_TRUE(StartServiceW(Open(name).get(), 0, nullptr)) << GetLastError();
        ASSERT_TRUE(Reaches(name, SERVICE_RUNNING));
    }

    std::wstring name;
    std::wstring path;
};

class ServiceActionTest : public ::testing::Test {
protected:
    UINT Run(const char* action, const std::wstring& data = L"") { return session_.Run(action, data); }
    std::vector<RecordedMessage> Errors() { return session_.messages().OfType(INSTALLMESSAGE_ERROR); }

    ActionSession session_;
};

class MsiCreateServiceTest : public ServiceActionTest {
protected:
    ~MsiCreateServiceTest() override {
        StopAndDeleteService(L"nvcsphclm");
        StopAndDeleteService(L"nvcsp");
    }
};

// The services are only created: Wine has no "nvcsp" group for its svchost to
// run. Wine's NetLocalGroupAdd and NetLocalGroupDel do nothing and answer 0,
// so whether the local group is made or deleted cannot be seen here.
TEST_F(MsiCreateServiceTest, HelperStartsOnDemandOthersAutomaticallyAndADuplicateFails) {
    const std::wstring hostAndGroup = L"|%SystemRoot%\\system32\\svchost.exe -k nvcsp|SmartCardGroup|";
    EXPECT_EQ(Run("MsiCreateService", L"nvcsphclm/Norvane helper/1/Card Users"), 0u);
    EXPECT_EQ(Config(L"nvcsphclm"), L"0x10 3 1" + hostAndGroup + L"Norvane helper");
    EXPECT_EQ(Run("MsiCreateService", L"nvcsp"), 0u);
    EXPECT_EQ(Config(L"nvcsp"), L"0x110 2 1" + hostAndGroup);
    EXPECT_TRUE(Errors().empty());

    EXPECT_EQ(Run("MsiCreateService", L"nvcsp/Again"), kFailure);
    EXPECT_EQ(session_.messages().FieldsOf(INSTALLMESSAGE_ERROR),
              (std::vector<std::vector<std::wstring>>{{L"1923", L"nvcsp", L"1073"}}));
    EXPECT_EQ(Config(L"nvcsp"), L"0x110 2 1" + hostAndGroup) << "the service there stays as it was";
}

// The host service cannot run under Wine; a running stand-in shows the stop.
TEST_F(MsiCreateServiceTest, RollbackStopsAndDeletesTheServiceAndFailsSilentlyWhenThereIsNone) {
    TestService service(L"NvnRollback", SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, L"");
    service.Start();
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), 0u);
    // Deleted, a service is gone only once its process has ended: stopped.
    EXPECT_TRUE(Reaches(L"NvnRollback", 0));

    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback/Card Users"), kFailure);
    EXPECT_EQ(Run("MsiCreateServiceRollback", L"NvnRollback"), kFailure);
    EXPECT_TRUE(Errors().empty());
}

using UnprotectServiceTest = ServiceActionTest;

// Running, the service is stopped, changed and started again in a new
// process; the stand-in takes half a second to stop, so the action must wait.
TEST_F(UnprotectServiceTest, ProtectedSharedServiceRunsAgainInItsOwnProcess) {
    TestService service(L"NvnProtected", SERVICE_WIN32_SHARE_PROCESS, SERVICE_DEMAND_START, L" -k nvcsp -p");
    service.Start();
    const DWORD before = Status(service.name).dwProcessId;

    EXPECT_EQ(Run("UnprotectService", service.name), 0u);
    ASSERT_TRUE(Reaches(service.name, SERVICE_RUNNING));
    const std::wstring cut = service.path.substr(0, service.path.size() - 3);
    EXPECT_EQ(Config(service.name), L"0x10 3 0|" + cut + L"||" + service.name);
    EXPECT_NE(Status(service.name).dwProcessId, before);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(UnprotectServiceTest, WithoutTheOptionOnlyASharedTypeChangesAndAStoppedServiceStaysStopped) {
    TestService shared(L"NvnShared", SERVICE_WIN32_SHARE_PROCESS | SERVICE_INTERACTIVE_PROCESS,
                       SERVICE_AUTO_START, L" -k nvcsp");
    TestService own(L"NvnOwn", SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, L" -k nvcsp");
    own.Start();
    const DWORD before = Status(own.name).dwProcessId;

    EXPECT_EQ(Run("UnprotectService", shared.name), 0u);
    EXPECT_EQ(Config(shared.name), L"0x110 2 0|" + shared.path + L"||" + shared.name);
    EXPECT_EQ(ServiceState(shared.name), static_cast<DWORD>(SERVICE_STOPPED));

    EXPECT_EQ(Run("UnprotectService", own.name), 0u);
    ASSERT_TRUE(Reaches(own.name, SERVICE_RUNNING));
    EXPECT_EQ(Config(own.name), L"0x10 3 0|" + own.path + L"||" + own.name);
    EXPECT_NE(Status(own.name).dwProcessId, before) << "stopped and started again";

    EXPECT_EQ(Run("UnprotectService", L"NvnAbsent"), 0u);
    EXPECT_TRUE(Errors().empty());
    EXPECT_EQ(session_.library().Action("UnprotectService")(0), kFailure) << "no CustomActionData";
}

using SCardSvrTest = ServiceActionTest;

// Wine has no smart-card service of its own: a stand-in takes its name.
TEST_F(SCardSvrTest, DisabledBecomesAutomaticAndRunsOnDemandIsLeftAlone) {
    EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
    TestService service(L"SCardSvr", SERVICE_WIN32_OWN_PROCESS, SERVICE_DISABLED, L"");
    const std::wstring rest = L"|" + service.path + L"||SCardSvr";

    EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
    EXPECT_TRUE(Reaches(service.name, SERVICE_RUNNING));
    EXPECT_EQ(Config(service.name), L"0x10 2 0" + rest);

    SERVICE_STATUS status{};
    ControlService(Open(service.name).get(), SERVICE_CONTROL_STOP, &status);
    ASSERT_TRUE(Reaches(service.name, SERVICE_STOPPED));
    ASSERT_TRUE(ChangeServiceConfigW(Open(service.name).get(), SERVICE_NO_CHANGE, SERVICE_DEMAND_START,
                                     SERVICE_NO_CHANGE, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                     nullptr));
    EXPECT_EQ(Run("SetSCardSvrAutoStart"), 0u);
    Sleep(300);
    EXPECT_EQ(ServiceState(service.name), static_cast<DWORD>(SERVICE_STOPPED));
    EXPECT_EQ(Config(service.name), L"0x10 3 0" + rest);
    EXPECT_TRUE(Errors().empty());
}

using InteractiveServicesTest = ServiceActionTest;

TEST_F(InteractiveServicesTest, EnableClearsTheSystemSwitch) {
    const wchar_t key[] = L"SYSTEM\\CurrentControlSet\\Control\\Windows";
    WriteRegistryDword(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices", 1);
    EXPECT_EQ(Run("EnableInteractiveServices"), 0u);
    EXPECT_EQ(ReadRegistryDword(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices"), 0u);
    RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key, L"NoInteractiveServices");
}

using InteractiveServicesOnWindows10 = ServiceActionTest;
using InteractiveServicesOnWindows7 = ServiceActionTest;

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
