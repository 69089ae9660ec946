#pragma once
// The trace handle of the kernel chip and its plumbing, "FalMrouteKernel"
// (enable with VEX_TRACE=FalMrouteKernel/0-9). Level 1: errors from the
// kernel, with errno; 2: refusals; 6: every table write.
#include "platform/vex/Trace.h"

namespace FalKernel {

inline Vex::TraceHandle& kernelTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalMrouteKernel");
  return handle;
}

}  // namespace FalKernel

#define KERNEL_TRACE(level, source, expr) VEX_TRACE(::FalKernel::kernelTrace(), level, source, expr)
