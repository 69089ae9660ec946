#pragma once
// Fal::Mroute::AsyncMrouteSwitchRoute: what the asynchronous switch keeps per
// route in its route table: the route's key (also the table's key) and the
// index of its rendezvous-point address.
#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/memtab/RpaIndex.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Fal::Mroute {

struct FALMROUTE_EXPORT AsyncMrouteSwitchRoute {
  Routing::Multicast::Fib::IpGenRouteKey routeKey;
  Memtab::Multicast::Fib::RpaIndex rpaId = 0;

  AsyncMrouteSwitchRoute() = default;
  AsyncMrouteSwitchRoute(Routing::Multicast::Fib::IpGenRouteKey k, Memtab::Multicast::Fib::RpaIndex r)
      : routeKey(std::move(k)), rpaId(r) {}

  std::size_t hash() const;
  friend bool operator==(AsyncMrouteSwitchRoute const&, AsyncMrouteSwitchRoute const&) = default;
  // By route key, then by RPA index.
  friend std::strong_ordering operator<=>(AsyncMrouteSwitchRoute const&, AsyncMrouteSwitchRoute const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, AsyncMrouteSwitchRoute const& r) {
    return H::combine(std::move(h), r.routeKey, r.rpaId);
  }
};

// "Value('Fal::Mroute::AsyncMrouteSwitchRoute', ** {'routeKey': %s, 'rpaId': %s})"
FALMROUTE_EXPORT void strepOut(std::ostream& os, AsyncMrouteSwitchRoute const& r);
FALMROUTE_EXPORT AsyncMrouteSwitchRoute strepIn(Vex::StrepParser& p, Vex::StrepTag<AsyncMrouteSwitchRoute>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, AsyncMrouteSwitchRoute const& r);

}  // namespace Fal::Mroute

template <>
struct FALMROUTE_EXPORT std::hash<Fal::Mroute::AsyncMrouteSwitchRoute> {
  std::size_t operator()(Fal::Mroute::AsyncMrouteSwitchRoute const& r) const noexcept { return r.hash(); }
};
