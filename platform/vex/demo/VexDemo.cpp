// A tour of Vex in virtual time: an entity with a reactor, and a clock that
// fires three times one second apart, each time changing the entity. The run
// takes no wall-clock time: the loop jumps to the next due clock.
#include <cstdio>
#include <memory>

#include "platform/vex/ActivityManager.h"

namespace {

class Counter : public Vex::Entity {
 public:
  class Notifiee : public Vex::NotifieeOf<Counter> {
   public:
    virtual void onCount() {}
  };
  unsigned count() const { return count_; }
  void countIs(unsigned c) {
    if (c == count_) return;
    count_ = c;
    notify(&Notifiee::onCount);
  }

 private:
  unsigned count_ = 0;
};

void say(char const* what, unsigned n) {
  std::printf("%7.3f s  %s %u\n", Vex::ActivityManager::current()->now(), what, n);
}

class CountPrinter : public Counter::Notifiee {
 public:
  void onCount() override { say("reactor: count is now", notifier()->count()); }
};

// Bumps the counter on every tick and re-arms its clock until it has ticked enough.
class Ticker : public Vex::Clock::Notifiee {
 public:
  Ticker(Vex::Ptr<Vex::Clock> const& clock, Vex::Ptr<Counter> counter, unsigned ticks)
      : counter_(std::move(counter)), ticks_(ticks) {
    notifierIs(clock);
  }
  void onTime() override {
    say("clock: tick", ++ticked_);
    counter_->countIs(counter_->count() + 1);
    auto clock = Vex::ptrConstCast(notifier());
    clock->timeMinIs(ticked_ < ticks_ ? Vex::ActivityManager::current()->now() + 1.0 : Vex::kNever);
  }

 private:
  Vex::Ptr<Counter> counter_;
  unsigned ticks_;
  unsigned ticked_ = 0;
};

}  // namespace

int main() {
  Vex::ActivityManager am(std::make_unique<Vex::VirtualTimeSource>());
  auto counter = Vex::make<Counter>();
  CountPrinter printer;
  printer.notifierIs(counter);
  auto clock = am.clockNew();
  Ticker ticker(clock, counter, 3);
  clock->timeMinIs(am.now() + 1.0);
  say("clock armed; ticks wanted:", 3);
  am.run();
  say("loop idle; final count", counter->count());
  return counter->count() == 3 ? 0 : 1;
}
