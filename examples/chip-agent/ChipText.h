#pragma once
// How the toy chip writes down what the library hands it: a route key as
// "(10.0.0.1, 239.1.1.1)", outputs as "Ethernet2.200 Ethernet3.200" (with
// fast-reroute backups after "frr:").
#include <sstream>
#include <string>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlanSet.h"

namespace ToyChip {

inline std::string keyText(Routing::Multicast::Fib::IpGenRouteKey const& key) {
  std::ostringstream os;
  os << key;
  return os.str();
}

inline std::string outputsText(MrouteLib::PortVlanSet const& pvs) {
  std::ostringstream os;
  char const* sep = "";
  for (auto const& pv : pvs.portVlan()) {
    os << sep << pv;
    sep = " ";
  }
  if (pvs.portVlanFrrSize() > 0) {
    os << " frr:";
    for (auto const& pv : pvs.portVlanFrr()) os << ' ' << pv;
  }
  return os.str();
}

}  // namespace ToyChip
