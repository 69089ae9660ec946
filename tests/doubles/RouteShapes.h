#pragma once
// RouteShapes: the short forms tests write routes and outputs in, shared by
// the rigs of both flavours and the route programmer's tests: a route key
// from two texts, an Ethernet interface by number, outputs from
// "Ethernet1.100" texts, outputs protected by fast reroute, and a wanted
// route on an accepting VLAN.
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/DesiredRoute.h"
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
  // A route of vrf wanted on VLAN vlan (its accepting interface VLAN vlan),
  // with outputs in short form.
  static MrouteLib::DesiredRoute wanted(char const* vrf, IpGenRouteKey k, std::vector<char const*> const& outs,
                                        std::uint32_t vlan) {
    MrouteLib::DesiredRoute r(vrf, std::move(k));
    r.acceptingVlanIs(Bridging::VlanIdOrNone(vlan));
    r.acceptingIntfIdIs(Netcore::IntfId::vlan(vlan));
    for (auto t : outs) r.outputs().portVlanIs(MrouteLib::PortVlan(t));
    return r;
  }
};

}  // namespace FalTest
