#include "platform/vex/ActivityManager.h"

#include <algorithm>
#include <thread>

#include "platform/vex/Assert.h"

namespace Vex {
namespace {
thread_local ActivityManager* currentManager = nullptr;
}

namespace detail {
void deferNotification(NotifieeBase* n, std::string key, std::function<void()> fire) {
  auto* am = ActivityManager::current();
  VEX_ASSERT_MSG(am, "deferred notification without an activity manager");
  am->deferredIs(n, std::move(key), std::move(fire));
}
}  // namespace detail

Clock::~Clock() {
  if (manager_) {
    manager_->unschedule(this);
    manager_->clockGone(this);
  }
}

void Clock::timeMinIs(Seconds t) {
  bool changed = t != timeMin_;
  if (manager_) manager_->unschedule(this);
  timeMin_ = t;
  if (manager_ && isFinite(t)) manager_->schedule(this);
  if (changed) notify(&Notifiee::onTimeMin);
}

void Clock::fire() { notify(&Notifiee::onTime); }

ActivityManager::ActivityManager(std::unique_ptr<TimeSource> source) : source_(std::move(source)), previous_(currentManager) {
  currentManager = this;
}

ActivityManager::~ActivityManager() {
  for (Clock* c : clocks_) {
    c->manager_ = nullptr;
    c->scheduled_ = false;
  }
  for (std::size_t i = deferredHead_; i < deferred_.size(); ++i)
    if (auto* n = deferred_[i].notifiee) n->pendingDeferred_ = 0;
  if (currentManager == this) currentManager = previous_;
}

ActivityManager* ActivityManager::current() { return currentManager; }

Ptr<Clock> ActivityManager::clockNew() {
  Ptr<Clock> c(new Clock(this));
  c->slot_ = clocks_.size();
  clocks_.push_back(c.get());
  return c;
}

// Constant time, so a timer per entry costs nothing extra to drop.
void ActivityManager::clockGone(Clock* c) {
  Clock* last = clocks_.back();
  clocks_[c->slot_] = last;
  last->slot_ = c->slot_;
  clocks_.pop_back();
}

void ActivityManager::schedule(Clock* c) {
  c->seq_ = nextSeq_++;
  c->scheduled_ = true;
  schedule_.emplace(c->timeMin_, c->seq_, c);
}

void ActivityManager::unschedule(Clock* c) {
  if (!c->scheduled_) return;
  schedule_.erase({c->timeMin_, c->seq_, c});
  c->scheduled_ = false;
}

Seconds ActivityManager::nextTime() const {
  if (deferredPending() > 0) return now();
  return schedule_.empty() ? kNever : std::get<0>(*schedule_.begin());
}

void ActivityManager::deferredIs(NotifieeBase* n, std::string key, std::function<void()> fire) {
  if (!deferredKeys_.insert(key).second) return;  // coalesced with the delivery already queued
  deferred_.push_back({n, std::move(key), std::move(fire)});
  ++n->pendingDeferred_;
}

void ActivityManager::deferredCancel(NotifieeBase* n) {
  for (std::size_t i = deferredHead_; i < deferred_.size(); ++i) {
    auto& d = deferred_[i];
    if (d.notifiee == n) {
      // Frees the key too: a reactor built later at the same address must not
      // coalesce with this dead entry.
      deferredKeys_.erase(d.key);
      d.notifiee = nullptr;
      d.fire = nullptr;
    }
  }
}

// Entries stay in deferred_ until they run, so a reactor destroyed by an
// earlier handler of the same batch is still found and cancelled by
// deferredCancel. A delivery queued while its key is still waiting coalesces
// with it; once an entry has started, a new change queues a new delivery,
// which waits for the next batch: one pass runs only what was queued when it
// began, so a reactor that keeps re-queueing itself cannot hold the loop.
bool ActivityManager::runDeferred() {
  bool ran = false;
  // Counted rather than bounded by position: a handler that runs the loop
  // itself consumes entries and moves the head.
  for (std::size_t left = deferred_.size() - deferredHead_; left > 0 && deferredHead_ < deferred_.size(); --left) {
    Deferred d = std::move(deferred_[deferredHead_++]);
    if (!d.notifiee) continue;  // cancelled; its key went with it
    deferredKeys_.erase(d.key);
    --d.notifiee->pendingDeferred_;
    if (!d.notifiee->notificationActive()) continue;
    Seconds start = now();
    d.fire();
    longestSlice_ = std::max(longestSlice_, now() - start);
    ran = true;
  }
  deferred_.erase(deferred_.begin(), deferred_.begin() + static_cast<std::ptrdiff_t>(deferredHead_));
  deferredHead_ = 0;
  return ran;
}

bool ActivityManager::runOnce() {
  bool ran = runDeferred();
  Seconds t = now();
  std::vector<Ptr<Clock>> due;
  for (auto const& [when, seq, clock] : schedule_) {
    if (when > t) break;
    due.emplace_back(clock);
  }
  for (auto& c : due) {
    if (!c->scheduled_ || c->timeMin_ > t) continue;  // re-armed or disarmed by an earlier handler
    unschedule(c.get());
    Seconds start = now();
    c->fire();
    longestSlice_ = std::max(longestSlice_, now() - start);
    ran = true;
    runDeferred();
  }
  return ran;
}

void ActivityManager::waitUntil(Seconds t) {
  if (source_->isVirtual()) {
    source_->advanceTo(t);
  } else if (isFinite(t)) {
    Seconds dt = t - now();
    if (dt > 0) std::this_thread::sleep_for(std::chrono::duration<double>(dt));
  }
}

void ActivityManager::runUntil(Seconds t) {
  stopped_ = false;
  while (!stopped_ && now() <= t) {
    if (runOnce()) continue;
    Seconds next = nextTime();
    if (next > t) {
      if (now() < t) waitUntil(t);
      if (nextTime() > now()) break;
      continue;
    }
    waitUntil(next);
  }
}

void ActivityManager::run() {
  stopped_ = false;
  while (!stopped_) {
    if (runOnce()) continue;
    Seconds next = nextTime();
    if (!isFinite(next)) break;
    waitUntil(next);
  }
}

}  // namespace Vex
