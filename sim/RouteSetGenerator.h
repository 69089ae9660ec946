#pragma once
// FalSim::RouteSetGenerator: a workload of many routes over few output sets,
// the shape of IPTV-like fan-out (thousands of groups, a handful of port
// combinations), made from a seed so every run is the same.
//
// Routes i = 0..count-1 get the groups groupBase + i, all from one source
// (or (*, G)), accepting on the accepting VLANs in turn. `diversity` distinct
// output sets are drawn, each `portsPerSet` distinct ports of `ports` leaving
// on one VLAN of `outputVlans` (untagged when the list is empty); the first
// `diversity` routes take one set each, so every set is used, and the others
// a set drawn at random. With `frr`, every set that has an output on the
// protected interface is protected by the backups, triggered by that same
// interface going down.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/types/VlanId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfName.h"
#include "sim/Scenario.h"

namespace FalSim {

class RouteSetGenerator {
 public:
  struct Frr {
    Netcore::IntfId protectedIntf;
    std::vector<MrouteLib::PortVlan> backups;
  };

  struct Shape {
    std::size_t count = 0;
    std::size_t diversity = 1;
    std::uint64_t seed = 1;
    L3::VrfName vrf;
    // The source prefix; (*, G) when it is the zero prefix of length 0.
    Netcore::IpGenPrefix source;
    Netcore::IpGenAddr groupBase;
    std::vector<Bridging::VlanId> acceptingVlans;
    std::vector<Netcore::IntfId> ports;
    std::size_t portsPerSet = 1;
    std::vector<Bridging::VlanIdOrNone> outputVlans;
    std::optional<Frr> frr;
  };

  // How many distinct output sets the ports and VLANs allow (saturating).
  static std::uint64_t maxDistinct(Shape const& shape);
  // The group of route i: groupBase + i.
  static Netcore::IpGenAddr groupOf(Netcore::IpGenAddr const& base, std::uint64_t i);

  // Requires 1 <= portsPerSet <= ports.size(), diversity >= 1,
  // diversity <= maxDistinct(shape) and a non-empty acceptingVlans.
  static Scenario::RouteSet generate(std::string name, Shape const& shape);
};

}  // namespace FalSim
