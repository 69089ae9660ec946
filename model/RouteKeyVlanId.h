#pragma once
// A multicast route key with the VLAN its traffic is accepted on; keys the
// per-chip map from route to hardware route handle.
#include <functional>
#include <ostream>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Fal {

struct FALMROUTE_EXPORT RouteKeyVlanId {
  Routing::Multicast::Fib::IpGenRouteKey route;
  Bridging::VlanIdOrNone vlan;

  RouteKeyVlanId() = default;
  RouteKeyVlanId(Routing::Multicast::Fib::IpGenRouteKey const& r, Bridging::VlanIdOrNone v) : route(r), vlan(v) {}

  friend bool operator==(RouteKeyVlanId const& a, RouteKeyVlanId const& b) { return a.route == b.route && a.vlan == b.vlan; }
  // By route key, then by VLAN; no VLAN (0) first.
  friend bool operator<(RouteKeyVlanId const& a, RouteKeyVlanId const& b) {
    if (!(a.route == b.route)) return a.route < b.route;
    return a.vlan.value() < b.vlan.value();
  }
  std::size_t hash() const {
    return std::hash<Netcore::IpGenPrefix>()(route.source()) ^ std::hash<Netcore::IpGenPrefix>()(route.group()) ^
           std::hash<Bridging::VlanIdOrNone>()(vlan);
  }
};

FALMROUTE_EXPORT void strepOut(std::ostream& os, RouteKeyVlanId const& k);
FALMROUTE_EXPORT RouteKeyVlanId strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteKeyVlanId>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, RouteKeyVlanId const& k);

}  // namespace Fal

template <>
struct FALMROUTE_EXPORT std::hash<Fal::RouteKeyVlanId> {
  std::size_t operator()(Fal::RouteKeyVlanId const& k) const noexcept { return k.hash(); }
};
