#pragma once
// The key under which a freed OIF set waits in a switch's zombie collection.
// Ordered by expiry time, then group id, so the first member of the
// collection is the next zombie to expire. The default key (group 0, expiry
// +infinity) marks a set that is not a zombie.
#include <compare>
#include <cstdint>
#include <ostream>

#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Types.h"

namespace Fal {

struct FALMROUTE_EXPORT ZombieKey {
  std::uint32_t groupId = 0;  // the set's index in the replication table
  Vex::Seconds expiryTime = Vex::kNever;

  ZombieKey() = default;
  ZombieKey(std::uint32_t g, Vex::Seconds t) : groupId(g), expiryTime(t) {}

  // A set counts as a zombie while its expiry time is finite.
  bool isZombie() const { return Vex::isFinite(expiryTime); }

  friend bool operator==(ZombieKey const& a, ZombieKey const& b) {
    return a.groupId == b.groupId && a.expiryTime == b.expiryTime;
  }
  friend bool operator<(ZombieKey const& a, ZombieKey const& b) {
    if (a.expiryTime != b.expiryTime) return a.expiryTime < b.expiryTime;
    return a.groupId < b.groupId;
  }
};

FALMROUTE_EXPORT void strepOut(std::ostream& os, ZombieKey const& k);
FALMROUTE_EXPORT ZombieKey strepIn(Vex::StrepParser& p, Vex::StrepTag<ZombieKey>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, ZombieKey const& k);

}  // namespace Fal
