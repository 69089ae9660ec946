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
// - Descriptors (fileDescriptorNew): each turn ends by running the reactors
//   of the descriptors that are readable, each followed by the deferred
//   notifications it queued. When nothing is due, a loop on the monotonic
//   source waits in epoll until the next clock or a readable descriptor,
//   whichever comes first, so a real-time agent reacts to sockets and signals
//   at once and burns no CPU while idle. With the virtual source nothing ever
//   blocks: descriptors are only checked, and time still jumps to the next
//   clock, so tests and the simulator run exactly as without descriptors.
#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "platform/vex/Clock.h"
#include "platform/vex/Export.h"
#include "platform/vex/FileDescriptor.h"
#include "platform/vex/TimeSource.h"

namespace Vex {

class FALMROUTE_EXPORT ActivityManager {
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
  // Watches fd for readability from now on (see FileDescriptor). Throws
  // std::system_error when epoll refuses it.
  Ptr<FileDescriptor> fileDescriptorNew(int fd);

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
  // The longest single handler (clock, descriptor or deferred delivery) run so far.
  Seconds longestSlice() const { return longestSlice_; }
  // The longest single handler since the previous call (or since the start);
  // a sampler calls it once per interval.
  Seconds longestRecentSliceTake() {
    Seconds const s = longestRecentSlice_;
    longestRecentSlice_ = 0;
    return s;
  }
  // Descriptors watched now (with read interest).
  std::size_t fileDescriptorsWatched() const { return watched_; }
  // Times the loop went idle and waited (real time) or jumped (virtual time).
  std::uint64_t waits() const { return waits_; }

  // Used by the framework itself.
  void schedule(Clock* c);
  void unschedule(Clock* c);
  void deferredIs(NotifieeBase* n, std::string key, std::function<void()> fire);
  void deferredCancel(NotifieeBase* n);
  void clockGone(Clock* c);
  void watchIs(FileDescriptor* f, bool watch);
  void fileDescriptorGone(FileDescriptor* f);

 private:
  bool runDeferred();
  void sliceEnded(Seconds start) {
    Seconds const took = now() - start;
    longestSlice_ = std::max(longestSlice_, took);
    longestRecentSlice_ = std::max(longestRecentSlice_, took);
  }
  bool runReadable();
  void waitUntil(Seconds t);
  // Collects the ready descriptors into ready_, waiting at most until t
  // (now: only checks; kNever: until one is ready).
  void pollReady(Seconds t);

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
  int epollFd_ = -1;
  std::unordered_map<std::uint64_t, FileDescriptor*> descriptors_;
  std::uint64_t nextDescriptorId_ = 1;
  std::size_t watched_ = 0;
  // Ids of descriptors found ready and not yet served.
  std::vector<std::uint64_t> ready_;
  std::uint64_t waits_ = 0;
  Seconds longestSlice_ = 0;
  Seconds longestRecentSlice_ = 0;
  bool stopped_ = false;
};

}  // namespace Vex
