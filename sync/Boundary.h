#pragma once
// Fal::Boundary: a multicast boundary (bridge) entry programmed on a chip.
#include <cstdint>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/RouteHandle.h"
#include "platform/types/VlanId.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Fal {

class FALMROUTE_EXPORT Boundary : public Vex::Entity {
 public:
  Boundary(MrouteLib::RouteHandle handle, Routing::Multicast::Fib::IpGenRouteKey const& key, Bridging::VlanId acceptingVlanId)
      : key_(key), routeHandle_(handle), acceptingVlanId_(acceptingVlanId) {}

  MrouteLib::RouteHandle routeHandle() const { return routeHandle_; }
  Routing::Multicast::Fib::IpGenRouteKey const& key() const { return key_; }
  Bridging::VlanId acceptingVlanId() const { return acceptingVlanId_; }
  // The VRF the entry was programmed in, for its deletion and verification.
  std::uint16_t vrfId() const { return vrfId_; }
  void vrfIdIs(std::uint16_t v) { vrfId_ = v; }

 private:
  Routing::Multicast::Fib::IpGenRouteKey key_;
  MrouteLib::RouteHandle routeHandle_;
  Bridging::VlanId acceptingVlanId_;
  std::uint16_t vrfId_ = 0;
};

}  // namespace Fal
