#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/ActivityManager.h"

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
