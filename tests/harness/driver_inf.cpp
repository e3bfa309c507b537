#include "driver_inf.h"

namespace harness {
namespace {

// One section a line. $I is the install section, $S the service ("none"
// without one). Setup leaves alone the sections no line of the install section names.
constexpr char kTemplate[] =
    "[Version]\nSignature=\"$Windows NT$\"\nClass=System\nProvider=\"setuputils tests\"\n"
    "[DestinationDirs]\nDefaultDestDir=12\n$M"
    "[$I]\n$L"
    "[$I.Services]\n$A\n"
    "[Service_Install]\nServiceType=1\nStartType=3\nErrorControl=1\nServiceBinary=%12%\\$S.sys\n"
    "[Driver_Files]\n$S.sys\n"
    "[SourceDisksNames]\n1=\"Test disk\"\n"
    "[SourceDisksFiles]\n$S.sys=1\n";

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
                                      "Device=Driver_Install,ROOT\\TESTDRV\n"
                                    : "");
    ReplaceAll(inf, "$L", options.copyFiles ? "CopyFiles=Driver_Files\n" : "");
    ReplaceAll(inf, "$A",
               options.service.empty() ? ""
                                       : "AddService=" + options.service + ",0x00000002,Service_Install");
    ReplaceAll(inf, "$I", options.manufacturer ? "Driver_Install" : "DefaultInstall");
    ReplaceAll(inf, "$S", options.service.empty() ? "none" : options.service);
    ReplaceAll(inf, "\n", "\r\n");
    return inf;
}

} // namespace harness
