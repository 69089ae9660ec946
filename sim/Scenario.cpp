#include "sim/Scenario.h"

namespace FalSim {

char const* eventKindName(Scenario::EventKind kind) {
  switch (kind) {
    case Scenario::EventKind::addRoutes: return "addRoutes";
    case Scenario::EventKind::removeRoutes: return "removeRoutes";
    case Scenario::EventKind::addRoute: return "addRoute";
    case Scenario::EventKind::removeRoute: return "removeRoute";
    case Scenario::EventKind::interfaceDown: return "interfaceDown";
    case Scenario::EventKind::interfaceUp: return "interfaceUp";
    case Scenario::EventKind::traffic: return "traffic";
    case Scenario::EventKind::config: return "config";
    case Scenario::EventKind::fault: return "fault";
    case Scenario::EventKind::restart: return "restart";
  }
  return "?";
}

}  // namespace FalSim
