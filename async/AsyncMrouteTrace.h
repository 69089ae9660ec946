#pragma once
// The trace of the asynchronous flavour: the library's handle ("FalMroute"),
// lines tagged with the flavour's model file "FalAsyncMrouteSm". A disabled
// level costs one load and one branch: the handle is bound once, when the
// library is loaded, rather than behind a guard tested on every trace.
#include "platform/log/RingTrace.h"
#include "platform/vex/Trace.h"

namespace Fal::Mroute {
inline Vex::TraceHandle& asyncMrouteTraceHandle = Vex::traceHandle("FalMroute");
inline Vex::TraceHandle& asyncMrouteTrace() { return asyncMrouteTraceHandle; }
}  // namespace Fal::Mroute

#define FAL_ASYNC_TRACE(level, expr) VEX_TRACE(::Fal::Mroute::asyncMrouteTrace(), level, "FalAsyncMrouteSm", expr)
