#include "sync/Route.h"

#include "platform/vex/SmallBlockPool.h"

namespace Fal {

static_assert(alignof(Route) <= Vex::SmallBlockPool::kGrain);

void* Route::operator new(std::size_t n) { return Vex::routeObjectPool().allocate(n); }
void Route::operator delete(void* p, std::size_t n) noexcept { Vex::routeObjectPool().deallocate(p, n); }

Vex::Ptr<Route> routeFactory(MrouteLib::RouteHandle handle, Routing::Multicast::Fib::IpGenRouteKey const& key,
                             Bridging::VlanIdOrNone acceptingVlanId) {
  return Vex::make<Route>(handle, key, acceptingVlanId);
}

}  // namespace Fal
