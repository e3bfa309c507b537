#include "driver_inf.h"

namespace harness {
namespace {

// $I is the install section, $S the service ("none" without one). Setup
// leaves alone the sections no line of the install section names.
constexpr char kTemplate[] = R"([Version]
Signature="$Windows NT$"
Class=System
Provider="setuputils tests"
[DestinationDirs]
DefaultDestDir=12
$M
[$I]
$L
[$I.Services]
$A
[Service_Install]
ServiceType=1
StartType=3
ErrorControl=1
ServiceBinary=%12%\$S.sys
[Driver_Files]
$S.sys
[SourceDisksNames]
1="Test disk"
[SourceDisksFiles]
$S.sys=1
[Driver_AddReg]
HKLM,"SOFTWARE\SetupUtilsTest\$S",Installed,0x00010001,1
HKLM,"SOFTWARE\SetupUtilsTest\$S\Settings",Mode,,"normal"
[EventLog_Install]
AddReg=EventLog_AddReg
[EventLog_AddReg]
HKR,,EventMessageFile,0x00020000,"%%SystemRoot%%\System32\IoLogMsg.dll"
HKR,,TypesSupported,0x00010001,7
)";

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

} // namespace

std::string DriverInf(const DriverInfOptions& options) {
    std::string inf = kTemplate;
    ReplaceAll(inf, "$M",
               options.manufacturer ? "[Manufacturer]\nVendor=Models,NTamd64\n[Models.NTamd64]\n"
                                      "Device=Driver_Install,ROOT\\TESTDRV"
                                    : "");
    ReplaceAll(inf, "$L",
               std::string(options.copyFiles ? "CopyFiles=Driver_Files\n" : "") +
                   (options.addReg ? "AddReg=Driver_AddReg\n" : ""));
    ReplaceAll(inf, "$A",
               options.service.empty() ? ""
                                       : "AddService=" + options.service + ",0x00000002,Service_Install" +
                                             (options.addReg ? ",EventLog_Install,System" : ""));
    ReplaceAll(inf, "$I", options.manufacturer ? "Driver_Install" : "DefaultInstall");
    ReplaceAll(inf, "$S", options.service.empty() ? "none" : options.service);
    ReplaceAll(inf, "\n", "\r\n");
    return inf;
}

} // namespace harness
