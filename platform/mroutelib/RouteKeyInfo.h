#pragma once
// What the asynchronous hooks learn about the route a group is allocated for:
// its VRF, its route-key type, the VLAN it accepts traffic on and how it is
// forwarded.
#include <cstdint>
#include <ostream>
#include <utility>

#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace MrouteLib {

struct FALMROUTE_EXPORT RouteKeyInfo {
  std::uint32_t vrfId = 0;
  std::uint8_t routeKeyType = 0;         // a Routing::Multicast::Fib::RouteKeyType value
  Bridging::VlanIdOrNone acceptingVlan;  // none for a route without RPF check
  bool bridge = false;                   // a boundary (bridging) entry, not a routed one
  bool fastdrop = false;

  friend bool operator==(RouteKeyInfo const&, RouteKeyInfo const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, RouteKeyInfo const& k) {
    return H::combine(std::move(h), k.vrfId, k.routeKeyType, k.acceptingVlan.value(), k.bridge, k.fastdrop);
  }
};

// "Value('MrouteLib::RouteKeyInfo', ** {'vrfId': 0, 'routeKeyType': 1,
// 'acceptingVlan': 10, 'bridge': False, 'fastdrop': False})"; operator<<
// writes the same.
FALMROUTE_EXPORT void strepOut(std::ostream& os, RouteKeyInfo const& k);
FALMROUTE_EXPORT RouteKeyInfo strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteKeyInfo>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, RouteKeyInfo const& k);

}  // namespace MrouteLib
