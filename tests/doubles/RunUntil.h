#pragma once
// runUntil: runs a real-time event loop until a condition holds, for a
// bounded time, for tests that wait on the kernel.
#include <functional>

#include "platform/vex/ActivityManager.h"

namespace FalTest {

// Runs am in short slices until done() holds (true) or limit seconds have
// passed (false).
inline bool runUntil(Vex::ActivityManager& am, std::function<bool()> const& done, double limit = 10.0) {
  double const end = am.now() + limit;
  while (!done()) {
    if (am.now() >= end) return false;
    am.runFor(0.002);
  }
  return true;
}

}  // namespace FalTest
