#pragma once
// The trace of the asynchronous flavour: the library's handle ("FalMroute"),
// lines tagged with the flavour's model file "FalAsyncMrouteSm". A disabled
// level costs one branch.
#include "platform/log/RingTrace.h"
#include "platform/vex/Trace.h"

namespace Fal::Mroute {
inline Vex::TraceHandle& asyncMrouteTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalMroute");
  return handle;
}
}  // namespace Fal::Mroute

#define FAL_ASYNC_TRACE(level, expr) VEX_TRACE(::Fal::Mroute::asyncMrouteTrace(), level, "FalAsyncMrouteSm", expr)
