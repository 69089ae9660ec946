#include "sync/Route.h"

namespace Fal {

Vex::Ptr<Route> routeFactory(MrouteLib::RouteHandle handle, Routing::Multicast::Fib::IpGenRouteKey const& key,
                             Bridging::VlanIdOrNone acceptingVlanId) {
  return Vex::make<Route>(handle, key, acceptingVlanId);
}

}  // namespace Fal
