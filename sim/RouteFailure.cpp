#include "sim/RouteFailure.h"

#include "platform/mroutelib/AsyncSwitchChip.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "sim/AsyncReferenceChip.h"

namespace FalSim {

std::string routeFailureName(std::uint32_t code) {
  using MrouteLib::AsyncSwitchChip;
  using MrouteLib::RouteProgrammer;
  switch (code) {
    case RouteProgrammer::kFailureReplicationTableFull: return "replicationTableFull";
    case RouteProgrammer::kFailureRouteTableFull: return "routeTableFull";
    case RouteProgrammer::kFailureBoundaryTableFull: return "boundaryTableFull";
    case RouteProgrammer::kFailureOther: return "other";
    case AsyncSwitchChip::kFailureNoMulticastId: return "noMulticastId";
    case AsyncSwitchChip::kFailureRouteRefused: return "routeRefused";
    case AsyncSwitchChip::kFailureNoVrfStatus: return "noVrfStatus";
    default: return xactReasonName(code);
  }
}

}  // namespace FalSim
