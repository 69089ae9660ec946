#pragma once
// The simulator's trace handle, "FalSim", shared by the reference chip's
// tables and its hook faces; lines carry the source tag "FalSimReferenceChip".
#include "platform/vex/Trace.h"

namespace FalSim {

inline Vex::TraceHandle& simTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalSim");
  return handle;
}

}  // namespace FalSim

#define SIM_TRACE(level, expr) VEX_TRACE(::FalSim::simTrace(), level, "FalSimReferenceChip", expr)
