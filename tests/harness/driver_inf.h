// Text of a driver package INF for the tests and the sample package.
#pragma once

#include <string>

namespace harness {

// An INF whose install section comes from its first manufacturer's first model
// and whose services section names `service` in its first AddService line
// (no AddService line when `service` is empty).
std::string DriverInf(const std::string& service);

} // namespace harness
