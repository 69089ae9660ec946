#pragma once
// Fal::Mroute::MrouteCounterKey: the route a hardware counter counts, as the
// counter key map table keys it: the route's VRF id and its (source, group).
//
// The default key (VRF 0, the empty route key) is not valid: it names no
// route. hash() is a function of the key's bytes alone, the same in every
// process, because the shared-memory table places rows by it.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <utility>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

struct FALMROUTE_EXPORT MrouteCounterKey {
  Vex::U32 vrfId = 0;
  Routing::Multicast::Fib::IpGenRouteKey sg;

  MrouteCounterKey() = default;
  MrouteCounterKey(Vex::U32 v, Routing::Multicast::Fib::IpGenRouteKey k) : vrfId(v), sg(std::move(k)) {}

  bool isValid() const { return !sg.isNull(); }
  std::size_t hash() const;

  friend bool operator==(MrouteCounterKey const&, MrouteCounterKey const&) = default;
  // By VRF id, then by the route key's own ordering.
  friend std::strong_ordering operator<=>(MrouteCounterKey const&, MrouteCounterKey const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, MrouteCounterKey const& k) {
    return H::combine(std::move(h), k.hash());
  }
};

// "Value('Fal::Mroute::MrouteCounterKey', ** {'vrfId': %s, 'sg': %s})"
FALMROUTE_EXPORT void strepOut(std::ostream& os, MrouteCounterKey const& k);
FALMROUTE_EXPORT MrouteCounterKey strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteCounterKey>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, MrouteCounterKey const& k);

}  // namespace Fal::Mroute

template <>
struct FALMROUTE_EXPORT std::hash<Fal::Mroute::MrouteCounterKey> {
  std::size_t operator()(Fal::Mroute::MrouteCounterKey const& k) const noexcept { return k.hash(); }
};
