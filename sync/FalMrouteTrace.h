#pragma once
// The library's trace handle ("FalMroute") and the trace macro of the
// synchronous flavour. A disabled level costs one branch.
#include "platform/log/RingTrace.h"
#include "platform/vex/Trace.h"

namespace Fal {
inline Vex::TraceHandle& falMrouteTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalMroute");
  return handle;
}
}  // namespace Fal

#define FAL_SYNC_TRACE(level, expr) VEX_TRACE(::Fal::falMrouteTrace(), level, "FalSyncMrouteSm", expr)
