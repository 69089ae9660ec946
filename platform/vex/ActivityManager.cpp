#include "platform/vex/ActivityManager.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <system_error>
#include <thread>

#include <sys/epoll.h>
#include <time.h>
#include <unistd.h>

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

FileDescriptor::~FileDescriptor() {
  if (manager_) manager_->fileDescriptorGone(this);
}

void FileDescriptor::readInterestIs(bool interest) {
  if (interest == readInterest_) return;
  readInterest_ = interest;
  if (manager_) manager_->watchIs(this, interest);
}

void FileDescriptor::fire() {
  ++readableCount_;
  notify(&Notifiee::onReadable);
}

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
  for (auto const& [id, f] : descriptors_) f->manager_ = nullptr;
  if (epollFd_ >= 0) ::close(epollFd_);
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

Ptr<FileDescriptor> ActivityManager::fileDescriptorNew(int fd) {
  if (epollFd_ < 0) {
    epollFd_ = ::epoll_create1(EPOLL_CLOEXEC);
    if (epollFd_ < 0) throw std::system_error(errno, std::generic_category(), "epoll_create1");
  }
  Ptr<FileDescriptor> f(new FileDescriptor(this, fd, nextDescriptorId_++));
  descriptors_.emplace(f->id_, f.get());
  try {
    watchIs(f.get(), true);
  } catch (...) {
    descriptors_.erase(f->id_);
    f->manager_ = nullptr;
    throw;
  }
  return f;
}

void ActivityManager::watchIs(FileDescriptor* f, bool watch) {
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = f->id_;
  if (::epoll_ctl(epollFd_, watch ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, f->fd_, &ev) < 0) {
    // A descriptor closed before its entity went is no longer in the set.
    if (!watch && (errno == EBADF || errno == ENOENT)) {
      --watched_;
      return;
    }
    throw std::system_error(errno, std::generic_category(), watch ? "epoll_ctl add" : "epoll_ctl del");
  }
  watch ? ++watched_ : --watched_;
}

void ActivityManager::fileDescriptorGone(FileDescriptor* f) {
  if (f->readInterest_) watchIs(f, false);
  descriptors_.erase(f->id_);
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
    sliceEnded(start);
    ran = true;
  }
  deferred_.erase(deferred_.begin(), deferred_.begin() + static_cast<std::ptrdiff_t>(deferredHead_));
  deferredHead_ = 0;
  return ran;
}

void ActivityManager::pollReady(Seconds t) {
  if (watched_ == 0 || !ready_.empty()) return;
  constexpr int kMaxEvents = 64;
  epoll_event events[kMaxEvents];
  timespec timeout{};
  timespec* wait = &timeout;
  if (!isFinite(t)) {
    wait = nullptr;
  } else {
    Seconds const dt = std::max(0.0, t - now());
    timeout.tv_sec = static_cast<time_t>(dt);
    timeout.tv_nsec = static_cast<long>((dt - std::floor(dt)) * 1e9);
  }
  int const n = ::epoll_pwait2(epollFd_, events, kMaxEvents, wait, nullptr);
  // EINTR: a signal not routed through a descriptor; the caller looks again.
  for (int i = 0; i < n; ++i) ready_.push_back(events[i].data.u64);
}

// Each ready descriptor is served once per turn, in the order epoll gave
// them; one that went (or lost interest) in an earlier handler is skipped.
bool ActivityManager::runReadable() {
  pollReady(now());
  if (ready_.empty()) return false;
  std::vector<std::uint64_t> ready;
  ready.swap(ready_);
  bool ran = false;
  for (std::uint64_t id : ready) {
    auto it = descriptors_.find(id);
    if (it == descriptors_.end() || !it->second->readInterest_) continue;
    Ptr<FileDescriptor> f(it->second);
    Seconds start = now();
    f->fire();
    sliceEnded(start);
    ran = true;
    runDeferred();
  }
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
    sliceEnded(start);
    ran = true;
    runDeferred();
  }
  if (watched_ > 0 && runReadable()) ran = true;
  return ran;
}

void ActivityManager::waitUntil(Seconds t) {
  ++waits_;
  if (source_->isVirtual()) {
    source_->advanceTo(t);
  } else if (watched_ > 0) {
    pollReady(t);
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
      if (now() < t) {
        // A real wait may end early, on a readable descriptor or a signal.
        waitUntil(t);
        if (!source_->isVirtual()) continue;
      }
      if (nextTime() > now()) break;
      continue;
    }
    waitUntil(next);
  }
}

// With the real source, watched descriptors keep the loop alive: it waits
// for them even when no clock is armed.
void ActivityManager::run() {
  stopped_ = false;
  while (!stopped_) {
    if (runOnce()) continue;
    Seconds next = nextTime();
    bool const waitForDescriptors = watched_ > 0 && !source_->isVirtual();
    if (!isFinite(next) && !waitForDescriptors) break;
    waitUntil(next);
  }
}

}  // namespace Vex
