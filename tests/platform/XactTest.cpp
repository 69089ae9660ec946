// Bolt::Xact: completion and its delivery on the event loop, in virtual time.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "platform/bolt/Xact.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"

namespace {

using Bolt::Xact;
using Bolt::XactStatus;

struct Told {
  Vex::Seconds time;
  XactStatus status;
  std::uint32_t reason;
  bool operator==(Told const&) const = default;
};

void PrintTo(Told const& t, std::ostream* os) { *os << t.status << " reason " << t.reason << " at " << t.time; }

struct Watcher : Xact::Notifiee {
  std::vector<Told> told;
  void onStatus() override {
    told.push_back({Vex::ActivityManager::current()->now(), notifier()->status(), notifier()->reason()});
  }
};

class XactTest : public ::testing::Test {
 protected:
  void SetUp() override { previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override { Vex::fatalHandlerIs(previous_); }
  // Runs fn from a clock handler at time t, as a chip agent's timer would,
  // then everything else due at t.
  void at(Vex::Seconds t, std::function<void()> fn) {
    struct Once : Vex::Clock::Notifiee {
      std::function<void()> fn;
      void onTime() override { fn(); }
    } once;
    once.fn = std::move(fn);
    auto clock = am_.clockNew();
    once.notifierIs(clock);
    clock->timeMinIs(t);
    am_.runUntil(t);
  }
  Vex::ActivityManager am_;
  Vex::FatalHandler previous_;
};

struct Outcome {
  char const* name;
  XactStatus status;
  std::uint32_t reason;
};

void PrintTo(Outcome const& o, std::ostream* os) { *os << o.name; }

class XactOutcomeTest : public XactTest, public ::testing::WithParamInterface<Outcome> {};

TEST_P(XactOutcomeTest, WaitersAreToldOnTheTurnAfterTheCompletingCall) {
  Outcome const o = GetParam();
  auto xact = Xact::xactNew("group 17");
  Watcher watcher;
  watcher.notifierIs(xact);
  std::vector<Told> functions;
  xact->waiterAdd([&](Xact const& x) { functions.push_back({am_.now(), x.status(), x.reason()}); });
  EXPECT_TRUE(xact->pending());

  bool toldInsideCall = true;
  at(2.5, [&] {
    if (o.status == XactStatus::succeeded)
      xact->succeededIs();
    else
      xact->failedIs(o.reason);
    EXPECT_EQ(xact->status(), o.status) << "the status changes in the completing call";
    toldInsideCall = !watcher.told.empty() || !functions.empty();
  });
  EXPECT_FALSE(toldInsideCall);
  EXPECT_EQ(xact->completionTime(), 2.5);
  Told const expected{2.5, o.status, o.reason};
  EXPECT_EQ(watcher.told, std::vector<Told>{expected}) << "told once, in the same virtual instant";
  EXPECT_EQ(functions, std::vector<Told>{expected});
  EXPECT_TRUE(xact->delivered());
  am_.run();
  EXPECT_EQ(watcher.told.size(), 1U) << "told once only";
}

INSTANTIATE_TEST_SUITE_P(Outcomes, XactOutcomeTest,
                         ::testing::Values(Outcome{"succeeded", XactStatus::succeeded, 0},
                                           Outcome{"failed", XactStatus::failed, 0x400}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(XactTest, WaiterAddedAfterDeliveryRunsOnTheNextTurnAndReactorsAreNotToldAgain) {
  auto xact = Xact::xactNew();
  Watcher watcher;
  watcher.notifierIs(xact);
  xact->failedIs(8);
  am_.runOnce();
  ASSERT_EQ(watcher.told.size(), 1U);
  int late = 0;
  xact->waiterAdd([&](Xact const& x) { late += x.failed() && x.reason() == 8; });
  EXPECT_EQ(late, 0) << "never inside waiterAdd";
  am_.runOnce();
  EXPECT_EQ(late, 1);
  EXPECT_EQ(watcher.told.size(), 1U);
}

TEST_F(XactTest, WaiterMayWaitAgainFromInsideItsDelivery) {
  auto xact = Xact::xactNew();
  int calls = 0;
  xact->waiterAdd([&](Xact const& x) {
    ++calls;
    x.waiterAdd([&](Xact const&) { ++calls; });
  });
  xact->succeededIs();
  am_.runOnce();
  EXPECT_EQ(calls, 1);
  am_.runOnce();
  EXPECT_EQ(calls, 2);
}

TEST_F(XactTest, CompletingTwiceOrFailingWithoutAReasonStopsTheAgent) {
  auto xact = Xact::xactNew();
  try {
    xact->failedIs(0);
    FAIL() << "failed without a reason";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "Bolt::Xact failed without a reason");
  }
  EXPECT_TRUE(xact->pending());
  xact->succeededIs();
  try {
    xact->failedIs(4);
    FAIL() << "completed twice";
  } catch (Vex::FatalError const& e) {
    EXPECT_EQ(std::string(e.what()), "Bolt::Xact " + std::to_string(xact->id()) + " completed twice");
  }
  EXPECT_TRUE(xact->succeeded());
  EXPECT_EQ(xact->reason(), 0U);
}

TEST_F(XactTest, TransactionDroppedBeforeDeliveryTellsNobody) {
  int calls = 0;
  {
    auto xact = Xact::xactNew();
    xact->waiterAdd([&](Xact const&) { ++calls; });
    xact->succeededIs();
  }
  am_.run();
  EXPECT_EQ(calls, 0);
}

TEST_F(XactTest, PrintsIdDescriptionStatusAndReason) {
  auto a = Xact::xactNew("group 17");
  auto b = Xact::xactNew();
  EXPECT_GT(b->id(), a->id());
  a->failedIs(0x400);
  std::ostringstream os;
  os << *a << ' ' << *b;
  EXPECT_EQ(os.str(), "Xact(" + std::to_string(a->id()) + " 'group 17' failed reason 0x400) Xact(" +
                          std::to_string(b->id()) + " pending)");
  EXPECT_EQ(Vex::parse<XactStatus>("succeeded"), XactStatus::succeeded);
}

}  // namespace
