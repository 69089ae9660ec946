#pragma once
// FalSim::routeFailureName: the name of a failure code in a route's hardware
// status, for reports: the route programmer's own codes, the asynchronous
// switch's, else the asynchronous chip's transaction reasons.
#include <cstdint>
#include <string>

namespace FalSim {

std::string routeFailureName(std::uint32_t code);

}  // namespace FalSim
