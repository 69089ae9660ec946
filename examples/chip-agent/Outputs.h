#pragma once
// The routes and outputs both halves of the example program, in short form.
#include <initializer_list>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenPrefix.h"

namespace ToyChip {

// ("10.0.0.1/32", "239.1.1.1/32")
inline Routing::Multicast::Fib::IpGenRouteKey key(char const* source, char const* group) {
  return Routing::Multicast::Fib::IpGenRouteKey(Netcore::IpGenPrefix(source), Netcore::IpGenPrefix(group));
}

// {"Ethernet2.200", "Ethernet3.200"}: (port, VLAN) outputs.
inline MrouteLib::PortVlanSet outputs(std::initializer_list<char const*> portVlans) {
  MrouteLib::PortVlanSet pvs;
  for (char const* pv : portVlans) pvs.portVlanIs(MrouteLib::PortVlan(pv));
  return pvs;
}

// Traffic arriving on Ethernet1 goes out of Ethernet2.300 and Ethernet3.300;
// should Ethernet1 fail, the outputs on Ethernet2 give way to Ethernet4.300.
inline MrouteLib::PortVlanSet frrOutputs() {
  MrouteLib::PortVlanSet pvs = outputs({"Ethernet2.300", "Ethernet3.300"});
  pvs.currentIifIs(Netcore::IntfId::ethernet(1));
  pvs.intfIdIs(Netcore::IntfId::ethernet(2));
  pvs.portVlanFrrIs(MrouteLib::PortVlan("Ethernet4.300"));
  return pvs;
}

}  // namespace ToyChip
