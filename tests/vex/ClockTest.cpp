#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/ActivityManager.h"
#include "tests/vex/TestEntity.h"

namespace {

using Fired = std::vector<std::pair<std::string, Vex::Seconds>>;

// Records (name, time) each time its clock fires, then runs an optional hook.
class ClockRecorder : public Vex::Clock::Notifiee {
 public:
  ClockRecorder(std::string name, Fired* fired, Vex::Ptr<Vex::Clock> const& c)
      : clock_(c), name_(std::move(name)), fired_(fired) {
    notifierIs(c);
  }
  void onTime() override {
    fired_->emplace_back(name_, Vex::ActivityManager::current()->now());
    if (hook) hook();
  }
  Vex::Clock* clock() const { return clock_.get(); }
  std::function<void()> hook;

 private:
  Vex::Ptr<Vex::Clock> clock_;  // the notifier, held mutable
  std::string name_;
  Fired* fired_;
};

class ClockTest : public ::testing::Test {
 protected:
  ClockRecorder& recorder(std::string name, Vex::Seconds timeMin) {
    auto c = am_.clockNew();
    c->timeMinIs(timeMin);
    return *recorders_.emplace_back(std::make_unique<ClockRecorder>(std::move(name), &fired_, c));
  }
  Vex::ActivityManager am_{std::make_unique<Vex::VirtualTimeSource>(100.0)};
  Fired fired_;
  std::vector<std::unique_ptr<ClockRecorder>> recorders_;
};

TEST_F(ClockTest, FiresOnceWhenTimeReachesTimeMin) {
  auto& r = recorder("c", 105.0);
  am_.runUntil(104.999);
  EXPECT_TRUE(fired_.empty());
  EXPECT_TRUE(r.clock()->scheduled());
  am_.runUntil(105.0);
  EXPECT_EQ(fired_, (Fired{{"c", 105.0}}));
  am_.runUntil(200.0);
  EXPECT_EQ(fired_.size(), 1u);
  EXPECT_FALSE(r.clock()->scheduled());
  EXPECT_EQ(r.clock()->timeMin(), 105.0);
}

TEST_F(ClockTest, HandlerReArmsItsOwnClock) {
  auto& r = recorder("tick", 101.0);
  r.hook = [&] {
    if (fired_.size() < 3) r.clock()->timeMinIs(am_.now() + 1.0);
  };
  am_.run();
  EXPECT_EQ(fired_, (Fired{{"tick", 101.0}, {"tick", 102.0}, {"tick", 103.0}}));
  EXPECT_EQ(am_.now(), 103.0);
}

TEST_F(ClockTest, ArmingAtNowFiresOnTheNextTurnNotInsideTheCall) {
  auto& r = recorder("c", Vex::kNever);
  r.clock()->timeMinIs(am_.now());
  EXPECT_TRUE(fired_.empty());
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(fired_, (Fired{{"c", 100.0}}));
  EXPECT_FALSE(am_.runOnce());
}

TEST_F(ClockTest, InfinityDisarms) {
  auto& r = recorder("c", 101.0);
  r.clock()->timeMinIs(Vex::kNever);
  EXPECT_FALSE(r.clock()->scheduled());
  EXPECT_EQ(am_.nextTime(), Vex::kNever);
  am_.runUntil(500.0);
  EXPECT_TRUE(fired_.empty());
}

TEST_F(ClockTest, ClocksDueTogetherFireInArmingOrder) {
  recorder("b", 103.0);
  recorder("a", 103.0);
  recorder("early", 102.0);
  auto& rearmed = recorder("rearmed", 103.0);
  recorder("c", 103.0);
  rearmed.clock()->timeMinIs(103.0);  // arming again puts it last among its peers
  am_.runUntil(110.0);
  EXPECT_EQ(fired_, (Fired{{"early", 102.0}, {"b", 103.0}, {"a", 103.0}, {"c", 103.0}, {"rearmed", 103.0}}));
}

TEST_F(ClockTest, RunUntilAdvancesVirtualTimeToTheDeadline) {
  recorder("later", 120.0);
  am_.runUntil(107.5);
  EXPECT_EQ(am_.now(), 107.5);
  EXPECT_TRUE(fired_.empty());
  am_.runFor(12.5);
  EXPECT_EQ(am_.now(), 120.0);
  EXPECT_EQ(fired_, (Fired{{"later", 120.0}}));
}

TEST_F(ClockTest, TimeChargedInsideAHandlerDelaysLaterClocks) {
  auto& slow = recorder("slow", 101.0);
  recorder("next", 101.1);
  slow.hook = [&] { am_.advanceBy(0.25); };
  am_.runUntil(102.0);
  EXPECT_EQ(fired_, (Fired{{"slow", 101.0}, {"next", 101.25}}));
  EXPECT_DOUBLE_EQ(am_.longestSlice(), 0.25);
  EXPECT_EQ(am_.now(), 102.0);
}

TEST_F(ClockTest, TheLongestRecentSliceStartsAgainEachTimeItIsTaken) {
  recorder("long", 101.0).hook = [&] { am_.advanceBy(0.25); };
  recorder("short", 103.0).hook = [&] { am_.advanceBy(0.125); };
  am_.runUntil(102.0);
  EXPECT_DOUBLE_EQ(am_.longestRecentSliceTake(), 0.25);
  EXPECT_DOUBLE_EQ(am_.longestRecentSliceTake(), 0);
  am_.runUntil(104.0);
  EXPECT_DOUBLE_EQ(am_.longestRecentSliceTake(), 0.125);
  EXPECT_DOUBLE_EQ(am_.longestSlice(), 0.25);
}


// What the loop promises when handlers keep work due: see ActivityManager.h.
class EventLoopTest : public ClockTest {
 protected:
  // A clock whose handler costs `cost` of virtual time and re-arms it `after`
  // seconds later, up to `limit` times: always due when cost >= after.
  ClockRecorder& busy(std::string name, Vex::Seconds cost, Vex::Seconds after, std::size_t limit = 1000) {
    auto& r = recorder(name, am_.now());
    auto* counter = &firings_[name];
    r.hook = [this, &r, counter, cost, after, limit] {
      am_.advanceBy(cost);
      if (++*counter < limit) r.clock()->timeMinIs(am_.now() + after);
    };
    return r;
  }
  std::size_t count(std::string const& name) const {
    return static_cast<std::size_t>(std::count_if(fired_.begin(), fired_.end(), [&](auto const& f) { return f.first == name; }));
  }
  Vex::Seconds firstAt(std::string const& name) const {
    for (auto const& [n, t] : fired_) {
      if (n == name) return t;
    }
    return Vex::kNever;
  }
  std::map<std::string, std::size_t> firings_;
};

TEST_F(EventLoopTest, RunUntilStopsAtItsTargetWhileCostlyHandlersKeepClocksDue) {
  // Four chips' slices of 0.05 s, each asking to continue 0.01 s later: some
  // clock is due at every turn.
  for (auto const* chip : {"chip0", "chip1", "chip2", "chip3"}) busy(chip, 0.05, 0.01);
  recorder("event", 103.0);
  am_.runUntil(102.0);
  EXPECT_GT(am_.now(), 102.0);
  EXPECT_LE(am_.now(), 102.0 + 4 * 0.05);
  EXPECT_EQ(count("event"), 0u);
  // Due work was left for the next run, which takes it up where this one stopped.
  std::size_t const before = fired_.size();
  am_.runUntil(104.0);
  EXPECT_GT(fired_.size(), before);
  EXPECT_GE(firstAt("event"), 103.0);
  // At worst the turn began just before 103 and the next one ran the chips due before it first.
  EXPECT_LE(firstAt("event"), 103.0 + 2 * 4 * 0.05);
  EXPECT_LE(am_.now(), 104.0 + 4 * 0.05);
}

TEST_F(EventLoopTest, ClockAlwaysDueForNowRunsOncePerTurnAndLetsOthersRun) {
  busy("spin", 0.01, 0.0);
  recorder("other", 100.5);
  am_.runUntil(101.0);
  // Every turn of 0.01 s ran the spinning clock once, and the other one ran
  // in the first turn that began once it was due.
  EXPECT_EQ(count("other"), 1u);
  EXPECT_GE(firstAt("other"), 100.5);
  EXPECT_LE(firstAt("other"), 100.5 + 0.01 + 1e-9);
  EXPECT_NEAR(static_cast<double>(count("spin")), 100.0, 1.0);
}

TEST_F(EventLoopTest, DeferredReactorThatKeepsRequeueingItselfLetsDueClocksRun) {
  auto gauge = Vex::make<VexTest::Gauge>();
  VexTest::Log log;
  VexTest::GaugeRecorder echo("echo", &log, gauge);
  echo.deferredIs(true);
  echo.onValueHook = [&] {
    if (log.size() < 1000) gauge->valueIs(gauge->value() + 1);
  };
  recorder("due", am_.now());
  gauge->valueIs(1);
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(count("due"), 1u);
  // One delivery before the clock, the one it queued after it; the rest wait.
  EXPECT_EQ(log.size(), 2u);
  EXPECT_EQ(am_.deferredPending(), 1u);
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(log.size(), 3u);
}
}  // namespace

namespace {

TEST(ClockLifetimeTest, ClocksDroppedInAnyOrderLeaveTheOthersWorking) {
  auto am = std::make_unique<Vex::ActivityManager>();
  auto a = am->clockNew(), b = am->clockNew(), c = am->clockNew();
  for (auto* clock : {a.get(), b.get(), c.get()}) clock->timeMinIs(1.0);
  Fired fired;
  ClockRecorder rb("b", &fired, b);
  a = nullptr;
  c = nullptr;
  am->runUntil(2.0);
  EXPECT_EQ(fired, (Fired{{"b", 1.0}}));
  am.reset();
  EXPECT_EQ(b->activityManager(), nullptr);
  b->timeMinIs(3.0);
  EXPECT_FALSE(b->scheduled());
}

}  // namespace
