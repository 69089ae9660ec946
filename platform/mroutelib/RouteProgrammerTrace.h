#pragma once
// The route programmer's trace: handle "MrouteLib", source "RouteProgrammer".
#include "platform/vex/Trace.h"

namespace MrouteLib {

inline Vex::TraceHandle& routeProgrammerTrace() {
  static Vex::TraceHandle& h = Vex::traceHandle("MrouteLib");
  return h;
}

}  // namespace MrouteLib

#define ROUTE_PROGRAMMER_TRACE(level, expr) \
  VEX_TRACE(::MrouteLib::routeProgrammerTrace(), level, "RouteProgrammer", expr)
