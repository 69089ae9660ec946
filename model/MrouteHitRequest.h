#pragma once
// One request to refresh (read) or clear the hit-bit cache; the owner of the
// cache echoes it back as the response under the same id.
#include <cstdint>
#include <ostream>

#include "model/MrouteHitAction.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Fal {

struct FALMROUTE_EXPORT MrouteHitRequest {
  std::uint32_t requestId = 0;
  MrouteHitAction action = MrouteHitAction::read;

  MrouteHitRequest() = default;
  MrouteHitRequest(std::uint32_t id, MrouteHitAction a) : requestId(id), action(a) {}
  friend bool operator==(MrouteHitRequest const&, MrouteHitRequest const&) = default;
};

FALMROUTE_EXPORT void strepOut(std::ostream& os, MrouteHitRequest const& r);
FALMROUTE_EXPORT MrouteHitRequest strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteHitRequest>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, MrouteHitRequest const& r);

}  // namespace Fal
