#pragma once
// Fal::Mroute::ZombieKey: the key under which a freed OIF set (a multicast
// group) waits in the asynchronous switch's zombie collection: its group id
// and the time at which it may be freed.
//
// Ordered by expiry time, then group id, so the first member of the
// collection is the next to expire. The empty key (group 0, expiry
// +infinity) marks a set that is not a zombie. Equal when both fields are
// equal; a NaN time equals nothing, itself included.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <utility>

#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

struct FALMROUTE_EXPORT ZombieKey {
  std::uint32_t multicastId = 0;
  Vex::Seconds expiryTime = Vex::kNever;

  ZombieKey() = default;
  ZombieKey(std::uint32_t id, Vex::Seconds t) : multicastId(id), expiryTime(t) {}

  // A set is a zombie while its expiry time is finite.
  bool isZombie() const { return Vex::isFinite(expiryTime); }
  bool isEmpty() const { return *this == ZombieKey(); }

  std::size_t hash() const;
  friend bool operator==(ZombieKey const& a, ZombieKey const& b) {
    return a.multicastId == b.multicastId && a.expiryTime == b.expiryTime;
  }
  friend bool operator<(ZombieKey const& a, ZombieKey const& b) {
    if (a.expiryTime != b.expiryTime) return a.expiryTime < b.expiryTime;
    return a.multicastId < b.multicastId;
  }
  friend bool operator>(ZombieKey const& a, ZombieKey const& b) { return b < a; }
  friend bool operator<=(ZombieKey const& a, ZombieKey const& b) { return !(b < a); }
  friend bool operator>=(ZombieKey const& a, ZombieKey const& b) { return !(a < b); }
  template <typename H>
  friend H AbslHashValue(H h, ZombieKey const& k) {
    return H::combine(std::move(h), k.hash());
  }
};

// "Value('Fal::Mroute::ZombieKey', ** {'multicastId': %s, 'expiryTime': %s})"
FALMROUTE_EXPORT void strepOut(std::ostream& os, ZombieKey const& k);
FALMROUTE_EXPORT ZombieKey strepIn(Vex::StrepParser& p, Vex::StrepTag<ZombieKey>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, ZombieKey const& k);

}  // namespace Fal::Mroute

template <>
struct FALMROUTE_EXPORT std::hash<Fal::Mroute::ZombieKey> {
  std::size_t operator()(Fal::Mroute::ZombieKey const& k) const noexcept { return k.hash(); }
};
