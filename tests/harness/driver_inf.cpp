#include "driver_inf.h"

namespace harness {

std::string DriverInf(const std::string& service) {
    std::string inf = "[Version]\r\n"
                      "Signature=\"$Windows NT$\"\r\n"
                      "Class=System\r\n"
                      "Provider=%Vendor%\r\n"
                      "\r\n"
                      "[Manufacturer]\r\n"
                      "%Vendor%=Models,NTamd64\r\n"
                      "\r\n"
                      "[Models.NTamd64]\r\n"
                      "%Device%=Driver_Install,ROOT\\TESTDRV\r\n"
                      "\r\n"
                      "[Driver_Install]\r\n"
                      "\r\n"
                      "[Driver_Install.Services]\r\n";
    if (!service.empty()) {
        inf += "AddService=" + service + ",0x00000002,Service_Install\r\n";
    }
    inf += "\r\n"
           "[Service_Install]\r\n"
           "ServiceType=1\r\n"
           "StartType=3\r\n"
           "ErrorControl=1\r\n"
           "ServiceBinary=%12%\\" +
           (service.empty() ? std::string("none") : service) +
           ".sys\r\n"
           "\r\n"
           "[Strings]\r\n"
           "Vendor=\"setuputils tests\"\r\n"
           "Device=\"Test device\"\r\n";
    return inf;
}

} // namespace harness
