#pragma once
// The library's trace handle ("FalMroute") and the trace macro of the
// synchronous flavour. A disabled level costs one load and one branch: the
// handle is bound once, when the library is loaded.
#include "platform/log/RingTrace.h"
#include "platform/vex/Trace.h"

namespace Fal {
inline Vex::TraceHandle& falMrouteTraceHandle = Vex::traceHandle("FalMroute");
inline Vex::TraceHandle& falMrouteTrace() { return falMrouteTraceHandle; }
}  // namespace Fal

#define FAL_SYNC_TRACE(level, expr) VEX_TRACE(::Fal::falMrouteTrace(), level, "FalSyncMrouteSm", expr)
