#pragma once
// The event loop: clocks, deferred notifications and the current time.
//
// Single-threaded. The manager constructed last on a thread is that thread's
// current one (ActivityManager::current()) until it is destroyed; entities
// that need the time or a clock ask it. Its time source is given at
// construction: virtual for tests and simulation, monotonic for real runs.
//
// One turn (runOnce) fires every clock due at the current time, in order of
// (timeMin, arming order), then delivers deferred notifications. A clock armed
// during a turn fires at the earliest in the next turn.
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "platform/vex/Clock.h"
#include "platform/vex/TimeSource.h"

namespace Vex {

class ActivityManager {
 public:
  explicit ActivityManager(std::unique_ptr<TimeSource> source = std::make_unique<VirtualTimeSource>());
  ~ActivityManager();
  ActivityManager(ActivityManager const&) = delete;
  ActivityManager& operator=(ActivityManager const&) = delete;

  static ActivityManager* current();

  Seconds now() const { return source_->now(); }
  TimeSource& timeSource() { return *source_; }
  // Charges virtual time (a simulated chip's cost of one operation); no effect on real time.
  void advanceBy(Seconds dt) { source_->advanceTo(source_->now() + dt); }

  Ptr<Clock> clockNew();

  // One turn; returns whether anything ran.
  bool runOnce();
  // Runs until time t has been reached and nothing more is due at t.
  void runUntil(Seconds t);
  void runFor(Seconds dt) { runUntil(now() + dt); }
  // Runs until stop() or until nothing is left to do.
  void run();
  void stop() { stopped_ = true; }

  // The time of the next armed clock, or kNever.
  Seconds nextTime() const;
  std::size_t clocksScheduled() const { return schedule_.size(); }
  std::size_t deferredPending() const { return deferred_.size() - deferredHead_; }
  // The longest single handler (clock or deferred delivery) run so far.
  Seconds longestSlice() const { return longestSlice_; }

  // Used by the framework itself.
  void schedule(Clock* c);
  void unschedule(Clock* c);
  void deferredIs(NotifieeBase* n, std::string key, std::function<void()> fire);
  void deferredCancel(NotifieeBase* n);
  void clockGone(Clock* c);

 private:
  bool runDeferred();
  void waitUntil(Seconds t);

  std::unique_ptr<TimeSource> source_;
  ActivityManager* previous_;
  std::set<std::tuple<Seconds, std::uint64_t, Clock*>> schedule_;
  std::uint64_t nextSeq_ = 1;
  struct Deferred {
    NotifieeBase* notifiee;
    std::string key;
    std::function<void()> fire;
  };
  // Queued deliveries; those before deferredHead_ have run or are running.
  std::vector<Deferred> deferred_;
  std::size_t deferredHead_ = 0;
  std::unordered_map<std::string, std::size_t> deferredIndex_;
  std::vector<Clock*> clocks_;
  Seconds longestSlice_ = 0;
  bool stopped_ = false;
};

}  // namespace Vex
