#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include "platform/vex/ActivityManager.h"
#include "tests/vex/TestEntity.h"

namespace {

using VexTest::Gauge;
using VexTest::GaugeRecorder;
using VexTest::Log;

class NotifieeTest : public ::testing::Test {
 protected:
  Vex::ActivityManager am_{std::make_unique<Vex::VirtualTimeSource>()};
  Vex::Ptr<Gauge> gauge_ = Vex::make<Gauge>();
  Log log_;
};

TEST_F(NotifieeTest, MutatorNotifiesOnChangeAndStaysSilentOtherwise) {
  GaugeRecorder r("r", &log_, gauge_);
  gauge_->valueIs(3);
  gauge_->valueIs(3);
  gauge_->flagIs(7, true);
  gauge_->flagIs(7, true);
  gauge_->flagIs(7, false);
  EXPECT_EQ(log_, (Log{"r:value=3", "r:flag7=1", "r:flag7=0"}));
}

TEST_F(NotifieeTest, ReactorAddedDuringDeliveryHearsOnlyLaterChanges) {
  GaugeRecorder a("a", &log_, gauge_);
  std::unique_ptr<GaugeRecorder> late;
  a.onValueHook = [&] {
    if (!late) late = std::make_unique<GaugeRecorder>("late", &log_, gauge_);
  };
  gauge_->valueIs(1);
  gauge_->valueIs(2);
  EXPECT_EQ(log_, (Log{"a:value=1", "a:value=2", "late:value=2"}));
}

TEST_F(NotifieeTest, ReactorDeletingItselfAndALaterOneDuringDelivery) {
  auto first = std::make_unique<GaugeRecorder>("first", &log_, gauge_);
  auto second = std::make_unique<GaugeRecorder>("second", &log_, gauge_);
  GaugeRecorder third("third", &log_, gauge_);
  first->onValueHook = [&] {
    second.reset();
    first.reset();  // destroys the running handler's own reactor; nothing touches it afterwards
  };
  gauge_->valueIs(1);
  gauge_->valueIs(2);
  EXPECT_EQ(log_, (Log{"first:value=1", "third:value=1", "third:value=2"}));
  EXPECT_EQ(gauge_->notifieeCount(), 1u);
}

TEST_F(NotifieeTest, HandlerMutatingTheEntityDeliversEveryChangeToEveryReactor) {
  GaugeRecorder a("a", &log_, gauge_);
  GaugeRecorder b("b", &log_, gauge_);
  a.onValueHook = [&] {
    if (gauge_->value() < 3) gauge_->valueIs(gauge_->value() + 1);
  };
  gauge_->valueIs(1);
  // Nested deliveries run inside the outer one, so b reads the final value each time.
  EXPECT_EQ(log_, (Log{"a:value=1", "a:value=2", "a:value=3", "b:value=3", "b:value=3", "b:value=3"}));
}

TEST_F(NotifieeTest, InactiveReactorHearsNothingUntilReactivated) {
  GaugeRecorder r("r", &log_, gauge_);
  r.hasNotificationActiveIs(false);
  gauge_->valueIs(1);
  r.hasNotificationActiveIs(true);
  gauge_->valueIs(2);
  EXPECT_EQ(log_, (Log{"r:value=2"}));
}

TEST_F(NotifieeTest, NotifierIsRebindsAndDetachesFromTheOldNotifier) {
  auto other = Vex::make<Gauge>();
  GaugeRecorder r("r", &log_, gauge_);
  EXPECT_EQ(r.bindings, 1);
  r.notifierIs(gauge_);
  EXPECT_EQ(r.bindings, 1);
  r.notifierIs(other);
  EXPECT_EQ(r.bindings, 2);
  EXPECT_EQ(gauge_->notifieeCount(), 0u);
  gauge_->valueIs(1);
  other->valueIs(2);
  r.notifierIs(nullptr);
  other->valueIs(3);
  EXPECT_EQ(log_, (Log{"r:value=2"}));
  EXPECT_EQ(other->notifieeCount(), 0u);
}

TEST_F(NotifieeTest, ReactorKeepsItsNotifierAliveAfterOtherOwnersLetGo) {
  bool destroyed = false;
  auto g = Vex::make<Gauge>(&destroyed);
  auto r = std::make_unique<GaugeRecorder>("r", &log_, g);
  g = nullptr;
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(r->notifier()->value(), 0);
  r.reset();
  EXPECT_TRUE(destroyed);
}

// A derived entity adds an attribute; its notifiee extends the base one.
class Dial : public Gauge {
 public:
  class Notifiee : public Gauge::Notifiee {
   public:
    virtual void onLimit() {}
  };
  void limitIs(int v) {
    if (v == limit_) return;
    limit_ = v;
    notify(&Notifiee::onLimit);
  }

 private:
  int limit_ = 0;
};

class DialRecorder : public Dial::Notifiee {
 public:
  explicit DialRecorder(Log* log) : log_(log) {}
  void onValue() override { log_->push_back("dial:value"); }
  void onLimit() override { log_->push_back("dial:limit"); }

 private:
  Log* log_;
};

TEST_F(NotifieeTest, DerivedEntityTellsItsOwnAttributesOnlyToItsOwnReactors) {
  auto dial = Vex::make<Dial>();
  GaugeRecorder plain("plain", &log_, dial);
  DialRecorder own(&log_);
  own.notifierIs(dial);
  dial->limitIs(5);
  dial->valueIs(1);
  EXPECT_EQ(log_, (Log{"dial:limit", "plain:value=1", "dial:value"}));
}

TEST_F(NotifieeTest, DeferredDeliveryRunsOnNextTurnCoalescedPerHandlerAndKey) {
  GaugeRecorder now("now", &log_, gauge_);
  GaugeRecorder later("later", &log_, gauge_);
  later.deferredIs(true);
  gauge_->valueIs(1);
  gauge_->flagIs(4, true);
  gauge_->valueIs(2);
  gauge_->flagIs(5, true);
  gauge_->flagIs(4, false);
  EXPECT_EQ(am_.deferredPending(), 3u);
  EXPECT_EQ(log_, (Log{"now:value=1", "now:flag4=1", "now:value=2", "now:flag5=1", "now:flag4=0"}));
  log_.clear();
  EXPECT_TRUE(am_.runOnce());
  EXPECT_EQ(log_, (Log{"later:value=2", "later:flag4=0", "later:flag5=1"}));
  EXPECT_EQ(am_.deferredPending(), 0u);
}

TEST_F(NotifieeTest, DeferredReactorDestroyedBeforeDeliveryIsNotCalled) {
  auto gone = std::make_unique<GaugeRecorder>("gone", &log_, gauge_);
  auto killer = std::make_unique<GaugeRecorder>("killer", &log_, gauge_);
  auto victim = std::make_unique<GaugeRecorder>("victim", &log_, gauge_);
  for (auto* r : {gone.get(), killer.get(), victim.get()}) r->deferredIs(true);
  killer->onValueHook = [&] { victim.reset(); };  // a delivery queued in the same batch
  gauge_->valueIs(1);
  gone.reset();
  am_.runOnce();
  EXPECT_EQ(log_, (Log{"killer:value=1"}));
}

TEST_F(NotifieeTest, ReactorBuiltWhereADestroyedOneStoodStillHearsDeferredChanges) {
  std::optional<GaugeRecorder> r;
  r.emplace("old", &log_, gauge_);
  r->deferredIs(true);
  gauge_->valueIs(1);
  r.reset();
  r.emplace("new", &log_, gauge_);  // same address, same handler: the same coalescing key
  r->deferredIs(true);
  gauge_->valueIs(2);
  am_.runOnce();
  EXPECT_EQ(log_, (Log{"new:value=2"}));
}

TEST_F(NotifieeTest, DeferredDeliveryToAnInactiveReactorIsDropped) {
  GaugeRecorder r("r", &log_, gauge_);
  r.deferredIs(true);
  gauge_->valueIs(1);
  r.hasNotificationActiveIs(false);
  am_.runOnce();
  r.hasNotificationActiveIs(true);
  am_.runOnce();
  EXPECT_TRUE(log_.empty());
}

}  // namespace
