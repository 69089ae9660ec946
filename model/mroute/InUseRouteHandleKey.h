#pragma once
// Fal::Mroute::InUseRouteHandleKey: what an allocated route handle stands
// for: the route's key, the VLAN it accepts on (or none) and its VRF id. The
// asynchronous switch maps each such key to its handle and back.
//
// The default key (empty route key, no VLAN, VRF 0) names no route: a
// lookup by handle that finds nothing reads as it.
#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfId.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Fal::Mroute {

struct FALMROUTE_EXPORT InUseRouteHandleKey {
  Routing::Multicast::Fib::IpGenRouteKey routeKey;
  Bridging::VlanIdOrNone vlan;
  Fal::VrfId vrfId = 0;

  InUseRouteHandleKey() = default;
  InUseRouteHandleKey(Routing::Multicast::Fib::IpGenRouteKey k, Bridging::VlanIdOrNone v, Fal::VrfId vrf)
      : routeKey(std::move(k)), vlan(v), vrfId(vrf) {}

  std::size_t hash() const;
  friend bool operator==(InUseRouteHandleKey const&, InUseRouteHandleKey const&) = default;
  // By route key, then VLAN (none first), then VRF id.
  friend std::strong_ordering operator<=>(InUseRouteHandleKey const&, InUseRouteHandleKey const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, InUseRouteHandleKey const& k) {
    return H::combine(std::move(h), k.routeKey, k.vlan.value(), k.vrfId);
  }
};

// "Value('Fal::Mroute::InUseRouteHandleKey', ** {'routeKey': %s, 'vlan': %s, 'vrfId': %s})"
FALMROUTE_EXPORT void strepOut(std::ostream& os, InUseRouteHandleKey const& k);
FALMROUTE_EXPORT InUseRouteHandleKey strepIn(Vex::StrepParser& p, Vex::StrepTag<InUseRouteHandleKey>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, InUseRouteHandleKey const& k);

}  // namespace Fal::Mroute

template <>
struct FALMROUTE_EXPORT std::hash<Fal::Mroute::InUseRouteHandleKey> {
  std::size_t operator()(Fal::Mroute::InUseRouteHandleKey const& k) const noexcept { return k.hash(); }
};
