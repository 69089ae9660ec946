#pragma once
// Fal::Mroute::MrouteCounterKeyMapEntry: one row of the counter key map: the
// route (its key, which is also the row's key) and the 64-bit key of the
// hardware counter that counts it.
#include <cstdint>
#include <ostream>
#include <utility>

#include "async/MrouteCounterKey.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

struct FALMROUTE_EXPORT MrouteCounterKeyMapEntry {
  MrouteCounterKey key;
  Vex::U64 counterKey = 0;

  MrouteCounterKeyMapEntry() = default;
  MrouteCounterKeyMapEntry(MrouteCounterKey k, Vex::U64 c) : key(std::move(k)), counterKey(c) {}

  friend bool operator==(MrouteCounterKeyMapEntry const&, MrouteCounterKeyMapEntry const&) = default;
};

// "Value('Fal::Mroute::MrouteCounterKeyMapEntry', ** {'key': %s, 'counterKey': %s})"
FALMROUTE_EXPORT void strepOut(std::ostream& os, MrouteCounterKeyMapEntry const& e);
FALMROUTE_EXPORT MrouteCounterKeyMapEntry strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteCounterKeyMapEntry>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, MrouteCounterKeyMapEntry const& e);

}  // namespace Fal::Mroute
