#pragma once
// Fal::Mroute::MrouteCounterConstants: the fixed sizes of the counter key
// map.
#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Fal::Mroute {

struct FALMROUTE_EXPORT MrouteCounterConstants {
  // The rows the shared-memory counter key map is made with: one per route
  // with a hardware counter, and chips count at most this many routes.
  static constexpr Vex::U32 maxCounterTableSize = 32768;
};

}  // namespace Fal::Mroute
