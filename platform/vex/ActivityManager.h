#pragma once
// The event loop: clocks, deferred notifications and the current time.
//
// Single-threaded. The manager constructed last on a thread is that thread's
// current one (ActivityManager::current()) until it is destroyed; entities
// that need the time or a clock ask it. Its time source is given at
// construction: virtual for tests and simulation, monotonic for real runs.
//
// What the loop guarantees:
// - One turn (runOnce) first delivers the deferred notifications queued
//   before it, then fires each clock that was due when the turn began, once,
//   in order of (timeMin, arming order), delivering after each clock the
//   notifications it queued. A clock armed during a turn, even for the
//   current time, fires at the earliest in the next turn; so does a deferred
//   notification queued by a deferred handler.
// - Hence a handler that is always due (it re-arms its clock for now, or its
//   work outlasts its own interval, or its deferred reactor keeps changing
//   what it watches) runs once per turn and cannot keep any other clock or
//   delivery that is due from running in the same turn.
// - Virtual time moves only when the loop is idle (it jumps to the next due
//   clock) or when a handler charges time (advanceBy). A handler that re-arms
//   itself for the current time without charging any keeps the loop at that
//   instant, turn after turn: it must charge time or arm for later.
// - runUntil(t) never starts a turn once the current time is past t, whatever
//   is due then: a run whose handlers charge time stops at its target, and
//   what was due stays due for the next run.
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <unordered_set>
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
  // Runs turns while the current time is not past t and something is due at
  // or before it; when nothing is, moves time to the next due clock, or to t.
  // Returns at t once nothing more is due at t, or as soon as handlers have
  // charged the time past t (due work then waits for the next run).
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
  // Keys of the deliveries waiting, for coalescing.
  std::unordered_set<std::string> deferredKeys_;
  std::vector<Clock*> clocks_;
  Seconds longestSlice_ = 0;
  bool stopped_ = false;
};

}  // namespace Vex
