#pragma once
// One request to refresh (read) or clear the hit-bit cache; the owner of the
// cache echoes it back as the response under the same id.
#include <cstdint>
#include <ostream>

#include "model/MrouteHitAction.h"
#include "platform/vex/Strep.h"

namespace Fal {

struct MrouteHitRequest {
  std::uint32_t requestId = 0;
  MrouteHitAction action = MrouteHitAction::read;

  MrouteHitRequest() = default;
  MrouteHitRequest(std::uint32_t id, MrouteHitAction a) : requestId(id), action(a) {}
  friend bool operator==(MrouteHitRequest const&, MrouteHitRequest const&) = default;
};

void strepOut(std::ostream& os, MrouteHitRequest const& r);
MrouteHitRequest strepIn(Vex::StrepParser& p, Vex::StrepTag<MrouteHitRequest>);
std::ostream& operator<<(std::ostream& os, MrouteHitRequest const& r);

}  // namespace Fal
