#include <cstdio>

#include "driver_package_fixture.h"
#include "machine.h"

namespace harness {
namespace {

class KSProcessProbe : public DriverPackageTest {};

void PrintStates(MSIHANDLE session, const wchar_t* component) {
    INSTALLSTATE installed, action;
    UINT status = MsiGetComponentStateW(session, component, &installed, &action);
    wprintf(L"%ls: status %u installed %d action %d\n", component, status, installed, action);
}

TEST_F(KSProcessProbe, States) {
    setvbuf(stdout, nullptr, _IONBF, 0);
    AddDriver(L"nvdrv", L"drv.inf");
    AddDriver(L"other", L"other.inf", 0, L"", L"Off");
    WriteInf(L"drv.inf", DriverInf("nvdrv"));
    WriteInf(L"other.inf", DriverInf("other"));
    package_.Sql(L"UPDATE `Feature` SET `Level` = 0 WHERE `Feature` = 'Off'");
    auto& session = OpenCosted();
    PrintStates(session.get(), L"nvdrv");
    PrintStates(session.get(), L"other");
    UINT status = MsiSetComponentStateW(session.get(), L"other", INSTALLSTATE_ABSENT);
    wprintf(L"set other absent: %u\n", status);
    PrintStates(session.get(), L"other");
    wprintf(L"VersionNT64=%ls major=%lu\n", session.Property(L"VersionNT64").c_str(), ReportedMajorVersion());
    UINT result = RunKSProcess();
    wprintf(L"KSProcess=%u\n", result);
    for (auto& m : messages_.all()) {
        wprintf(L"type %08x count %u text [%ls]", m.type, m.fieldCount(), m.text.c_str());
        for (auto& f : m.fields) wprintf(L" |%ls", f.c_str());
        wprintf(L"\n");
    }
    wprintf(L"KSInstall64 prop=[%ls]\n", session.Property(L"KSInstall64").c_str());
}

TEST_F(KSProcessProbe, Installed) {
    AddDriver(L"nvdrv", L"drv.inf", 0, L"", L"Main");
    AddDriver(L"refd", L"refd.inf", 0, L"", L"Second");
    WriteInf(L"drv.inf", DriverInf("nvdrv"));
    WriteInf(L"refd.inf", DriverInf(""));
    auto& session = InstallThenOpen(L"ADDLOCAL=Main", {{L"ADDLOCAL", L"Second"}});
    PrintStates(session.get(), L"nvdrv");
    PrintStates(session.get(), L"refd");
    session_.reset();
    auto& s2 = *(session_ = std::make_unique<TestSession>(package_.path()));
    s2.SetProperty(L"REMOVE", L"ALL");
    s2.Cost();
    PrintStates(s2.get(), L"nvdrv");
    PrintStates(s2.get(), L"refd");
    messages_.Clear();
    UINT result = RunKSProcess();
    wprintf(L"KSProcess=%u\n", result);
    for (auto& m : messages_.all()) {
        wprintf(L"type %08x count %u text [%ls]\n", m.type, m.fieldCount(), m.text.c_str());
    }
}

} // namespace
} // namespace harness
