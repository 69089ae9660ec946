#pragma once
// Where the event loop takes its time from.
#include <chrono>

#include "platform/vex/Export.h"
#include "platform/vex/Types.h"

namespace Vex {

class FALMROUTE_EXPORT TimeSource {
 public:
  virtual ~TimeSource() = default;
  virtual Seconds now() const = 0;
  // Virtual sources jump to the next due clock when the loop is idle; a real
  // source waits for it.
  virtual bool isVirtual() const = 0;
  // Moves virtual time forward to t (never backwards); real sources ignore it.
  virtual void advanceTo(Seconds t) = 0;
};

// Manual time for tests and simulation. Starts at the given time.
class FALMROUTE_EXPORT VirtualTimeSource : public TimeSource {
 public:
  explicit VirtualTimeSource(Seconds start = 0.0) : now_(start) {}
  Seconds now() const override { return now_; }
  bool isVirtual() const override { return true; }
  void advanceTo(Seconds t) override {
    if (t > now_) now_ = t;
  }

 private:
  Seconds now_;
};

// Monotonic real time, in seconds since the source was made.
class FALMROUTE_EXPORT MonotonicTimeSource : public TimeSource {
 public:
  MonotonicTimeSource() : start_(std::chrono::steady_clock::now()) {}
  Seconds now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }
  bool isVirtual() const override { return false; }
  void advanceTo(Seconds) override {}

 private:
  std::chrono::steady_clock::time_point start_;
};

}  // namespace Vex
