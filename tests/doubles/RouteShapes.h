#pragma once
// RouteShapes: the short forms tests write routes and outputs in, shared by
// the rigs of both flavours: a route key from two texts, an Ethernet
// interface by number, outputs from "Ethernet1.100" texts, and outputs
// protected by fast reroute.
#include <cstdint>
#include <initializer_list>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenPrefix.h"

namespace FalTest {

struct RouteShapes {
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

  static IpGenRouteKey key(char const* source, char const* group) {
    return IpGenRouteKey(Netcore::IpGenPrefix(source), Netcore::IpGenPrefix(group));
  }
  static Netcore::IntfId eth(std::uint32_t n) { return Netcore::IntfId::ethernet(n); }

  // Outputs given in short form ("Ethernet1.100").
  static MrouteLib::PortVlanSet outputs(std::initializer_list<char const*> portVlans) {
    MrouteLib::PortVlanSet pvs;
    for (char const* pv : portVlans) pvs.portVlanIs(MrouteLib::PortVlan(pv));
    return pvs;
  }
  // Outputs protected by fast reroute: traffic arriving on iif leaves through
  // `outs`; when iif goes down, the outputs on `protectedIntf` give way to `backups`.
  static MrouteLib::PortVlanSet frrOutputs(Netcore::IntfId iif, std::initializer_list<char const*> outs,
                                           Netcore::IntfId protectedIntf, std::initializer_list<char const*> backups) {
    MrouteLib::PortVlanSet pvs = outputs(outs);
    pvs.currentIifIs(iif);
    pvs.intfIdIs(protectedIntf);
    for (char const* pv : backups) pvs.portVlanFrrIs(MrouteLib::PortVlan(pv));
    return pvs;
  }
};

}  // namespace FalTest
