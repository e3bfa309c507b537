#include "driver_inf.h"

namespace harness {

std::wstring DriverInfRegistryKey(const std::wstring& service) {
    return L"SOFTWARE\\SetupUtilsTest\\" + service;
}

std::string DriverInf(const DriverInfOptions& options) {
    const std::string& service = options.service;
    const std::string install = options.manufacturer ? "Driver_Install" : "DefaultInstall";
    std::string inf = "[Version]\r\n"
                      "Signature=\"$Windows NT$\"\r\n"
                      "Class=System\r\n"
                      "Provider=%Vendor%\r\n"
                      "\r\n"
                      "[DestinationDirs]\r\n"
                      "DefaultDestDir=12\r\n"
                      "\r\n";
    if (options.manufacturer) {
        inf += "[Manufacturer]\r\n"
               "%Vendor%=Models,NTamd64\r\n"
               "\r\n"
               "[Models.NTamd64]\r\n"
               "%Device%=Driver_Install,ROOT\\TESTDRV\r\n"
               "\r\n";
    }
    inf += "[" + install + "]\r\n";
    if (options.copyFiles) {
        inf += "CopyFiles=Driver_Files\r\n";
    }
    if (options.addReg) {
        inf += "AddReg=Driver_AddReg\r\n";
    }
    inf += options.extraInstallLines;
    inf += "\r\n[" + install + ".Services]\r\n";
    if (!service.empty()) {
        inf += "AddService=" + service + ",0x00000002,Service_Install" +
               (options.addReg ? ",EventLog_Install,System" : "") + "\r\n";
    }
    inf += "\r\n"
           "[Service_Install]\r\n"
           "ServiceType=1\r\n"
           "StartType=3\r\n"
           "ErrorControl=1\r\n"
           "ServiceBinary=%12%\\" +
           (service.empty() ? std::string("none") : service) + ".sys\r\n\r\n";
    if (options.copyFiles) {
        inf += "[Driver_Files]\r\n" + service +
               ".sys\r\n"
               "\r\n"
               "[SourceDisksNames]\r\n"
               "1=%Disk%\r\n"
               "\r\n"
               "[SourceDisksFiles]\r\n" +
               service + ".sys=1\r\n\r\n";
    }
    if (options.addReg) {
        inf += "[Driver_AddReg]\r\n"
               "HKLM,\"SOFTWARE\\SetupUtilsTest\\" +
               service +
               "\",Installed,0x00010001,1\r\n"
               "HKLM,\"SOFTWARE\\SetupUtilsTest\\" +
               service +
               "\\Settings\",Mode,,\"normal\"\r\n"
               "\r\n"
               "[EventLog_Install]\r\n"
               "AddReg=EventLog_AddReg\r\n"
               "\r\n"
               "[EventLog_AddReg]\r\n"
               "HKR,,EventMessageFile,0x00020000,\"%%SystemRoot%%\\System32\\IoLogMsg.dll\"\r\n"
               "HKR,,TypesSupported,0x00010001,7\r\n"
               "\r\n";
    }
    inf += "[Strings]\r\n"
           "Vendor=\"setuputils tests\"\r\n"
           "Device=\"Test device\"\r\n"
           "Disk=\"Test disk\"\r\n";
    return inf;
}

std::string DriverInf(const std::string& service) {
    DriverInfOptions options;
    options.service = service;
    return DriverInf(options);
}

} // namespace harness
