#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/vex/Assert.h"
#include "tests/doubles/MrouteSmRig.h"

namespace {

using Routing::Multicast::Fib::Counter;
using Routing::Multicast::Fib::CounterMode;
using Strings = std::vector<std::string>;

class CounterTest : public ::testing::Test, protected FalTest::MrouteSmRig {
 protected:
  // A control record driven below zero must fail the test, not abort it.
  void SetUp() override { previousFatal_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler); }
  void TearDown() override { Vex::fatalHandlerIs(previousFatal_); }

  // Starts with the construction's hook calls and traces forgotten.
  void startQuiet() {
    start();
    helper->clear();
    capture->clear();
  }
  Counter row(IpGenRouteKey const& k) const { return counterStatus->counter(k); }
  std::vector<Counter> shadow() const {
    std::vector<Counter> rows;
    for (auto const& [r, unused] : sm->counterShadow()) rows.push_back(r);
    return rows;
  }
  std::size_t reads() const { return helper->callsTo("doReadMrouteCounter").size(); }
  Vex::Seconds nextPoll() const { return sm->counterPollingClock()->timeMin(); }
  bool pollArmed() const { return sm->counterPollingClock() && sm->counterPollingClock()->scheduled(); }
  static std::string call(char const* hook, IpGenRouteKey const& k) { return std::string(hook) + "(" + k.pretty() + ")"; }

  // In counter order: a < b < c < d.
  IpGenRouteKey const a_ = key("10.0.0.1/32", "239.1.1.1/32");
  IpGenRouteKey const b_ = key("10.0.0.2/32", "239.1.1.1/32");
  IpGenRouteKey const c_ = key("10.0.0.3/32", "239.1.1.1/32");
  IpGenRouteKey const d_ = key("10.0.0.4/32", "239.1.1.1/32");
  Vex::FatalHandler previousFatal_;
};

// ---- publishing ----------------------------------------------------------------

TEST_F(CounterTest, PublishedRowIsMirroredInShadowAndControlRecord) {
  startQuiet();
  sm->updateMfibCounter(b_, 7, false);
  sm->updateMfibCounter(a_, 5, true);
  EXPECT_EQ(row(a_), Counter(a_, 5, kStart, true));
  EXPECT_EQ(row(b_), Counter(b_, 7, kStart, false));
  EXPECT_EQ(shadow(), (std::vector<Counter>{row(a_), row(b_)}));
  EXPECT_EQ(counterCtl->currSize(), 2U);
  EXPECT_EQ(counterCtl->currActive(), 1U);

  am.advanceBy(1.0);
  sm->updateMfibCounter(a_, 9, true);
  EXPECT_EQ(row(a_), Counter(a_, 9, kStart + 1.0, true));
  EXPECT_EQ(shadow(), (std::vector<Counter>{row(a_), row(b_)}));
  EXPECT_EQ(counterCtl->currSize(), 2U);
  EXPECT_EQ(counterCtl->currActive(), 1U);
}

TEST_F(CounterTest, ActiveChangeKeepsValueAndIgnoresUnpublishedRoutes) {
  startQuiet();
  sm->updateMfibCounter(a_, 5, true);
  am.advanceBy(1.0);
  sm->setMfibCounterActive(a_, false);
  EXPECT_EQ(row(a_), Counter(a_, 5, kStart + 1.0, false));
  EXPECT_EQ(counterCtl->currActive(), 0U);

  sm->setMfibCounterActive(b_, true);
  EXPECT_EQ(counterStatus->size(), 1U);
  EXPECT_EQ(counterCtl->currSize(), 1U);
}

TEST_F(CounterTest, RowWrittenAtTimeZeroCountsAsAbsent) {
  startQuiet();
  Counter const stale(a_, 9, 0.0, true);
  counterStatus->counterIs(stale);
  sm->setMfibCounterActive(a_, false);
  EXPECT_EQ(row(a_), stale);

  sm->updateMfibCounter(a_, -1, true);  // -1 keeps a value; a new row has none, so 0
  EXPECT_EQ(row(a_), Counter(a_, 0, kStart, true));
  EXPECT_EQ(counterCtl->currSize(), 1U);
  EXPECT_EQ(counterCtl->currActive(), 1U);
}

TEST_F(CounterTest, RemovalUnpublishesOnlyOnce) {
  startQuiet();
  sm->updateMfibCounter(a_, 5, true);
  sm->removeMfibCounter(a_);
  sm->removeMfibCounter(a_);
  EXPECT_EQ(counterStatus->size(), 0U);
  EXPECT_TRUE(shadow().empty());
  EXPECT_EQ(counterCtl->currSize(), 0U);
  EXPECT_EQ(counterCtl->currActive(), 0U);
}

// ---- polling ----------------------------------------------------------------------

TEST_F(CounterTest, PollingStartsTenthOfSecondAfterFirstActiveCounterThenEveryTwoSeconds) {
  startQuiet();
  sm->updateMfibCounter(a_, 0, true);
  Vex::Seconds const first = nextPoll();
  EXPECT_DOUBLE_EQ(first, kStart + 0.1);
  am.runUntil(first - 1e-6);
  EXPECT_EQ(reads(), 0U);
  am.runUntil(first);
  EXPECT_EQ(reads(), 1U);

  Vex::Seconds const second = nextPoll();
  EXPECT_DOUBLE_EQ(second - first, 2.0);
  am.runUntil(second - 1e-6);
  EXPECT_EQ(reads(), 1U);
  am.runUntil(second);
  EXPECT_EQ(reads(), 2U);
}

TEST_F(CounterTest, PollingAccumulatesEachActiveCounterOncePerRun) {
  startQuiet();
  sm->updateMfibCounter(a_, 0, true);
  sm->updateMfibCounter(b_, 10, true);
  sm->updateMfibCounter(c_, 3, false);
  helper->counterReads[a_.pretty()] = 4;
  helper->counterReads[b_.pretty()] = 6;
  helper->counterReads[c_.pretty()] = 100;

  Vex::Seconds const first = nextPoll();
  am.runUntil(first);
  // Each rewrite moves its row in the shadow; the walk still reads each once.
  EXPECT_EQ(helper->calls, (Strings{call("doReadMrouteCounter", a_), call("doReadMrouteCounter", b_)}));
  EXPECT_EQ(row(a_), Counter(a_, 4, first, true));
  EXPECT_EQ(row(b_), Counter(b_, 16, first, true));
  EXPECT_EQ(row(c_), Counter(c_, 3, kStart, false));

  am.runUntil(nextPoll());
  EXPECT_EQ(reads(), 4U);
  EXPECT_EQ(row(a_).value(), 8);
  EXPECT_EQ(row(b_).value(), 22);
  EXPECT_EQ(shadow().size(), 3U);
}

// A hook object that publishes counters from inside a read, as a chip agent
// learning of new routes might.
class PublishingOnReadHelper : public FalTest::RecordingMrouteHelper {
 public:
  std::function<void(IpGenRouteKey const&)> onRead;
  std::int64_t doReadMrouteCounter(IpGenRouteKey const& key) override {
    auto amount = RecordingMrouteHelper::doReadMrouteCounter(key);
    if (onRead) onRead(key);
    return amount;
  }
};

TEST_F(CounterTest, RunVisitsOnlyAsManyRowsAsItBeganWith) {
  auto h = Vex::make<PublishingOnReadHelper>();
  helper = h;
  startQuiet();
  h->onRead = [&](IpGenRouteKey const& k) {
    if (k == a_) sm->updateMfibCounter(d_, 0, true);
  };
  sm->updateMfibCounter(a_, 0, true);
  sm->updateMfibCounter(b_, 0, true);
  am.runUntil(nextPoll());
  EXPECT_EQ(helper->calls, (Strings{call("doReadMrouteCounter", a_), call("doReadMrouteCounter", b_)}));
  EXPECT_EQ(counterCtl->currActive(), 3U);
}

TEST_F(CounterTest, ReadOfZeroLeavesRowUntouched) {
  startQuiet();
  sm->updateMfibCounter(a_, 5, true);
  Counter const before = row(a_);
  am.runUntil(nextPoll());
  EXPECT_EQ(reads(), 1U);
  EXPECT_EQ(row(a_), before);
  EXPECT_EQ(shadow(), std::vector<Counter>{before});
}

TEST_F(CounterTest, PollingStopsWithoutActiveCounterAndRestartsSoonAfterOne) {
  startQuiet();
  sm->updateMfibCounter(a_, 0, true);
  am.runUntil(nextPoll());
  sm->setMfibCounterActive(a_, false);
  am.runUntil(nextPoll());
  EXPECT_EQ(reads(), 1U);
  EXPECT_FALSE(pollArmed());
  EXPECT_TRUE(capture->contains("doCounterPolling  Polling 1 counters"));
  am.runFor(60.0);
  EXPECT_EQ(reads(), 1U);

  Vex::Seconds const now = am.now();
  sm->setMfibCounterActive(a_, true);
  EXPECT_DOUBLE_EQ(nextPoll(), now + 0.1);
  am.runUntil(now + 0.1 - 1e-6);
  EXPECT_EQ(reads(), 1U);
  am.runUntil(nextPoll());
  EXPECT_EQ(reads(), 2U);
}

// While polling runs: a write after which exactly one counter is active
// brings the next run to 0.1 s from then; any other keeps the interval.
enum class Write { clearOnlyActive, reactivateOnlyActive, inactiveBesideOnlyActive, secondActive, lastGoesInactive };

class CounterRewriteTest : public CounterTest, public ::testing::WithParamInterface<Write> {};

TEST_P(CounterRewriteTest, WriteLeavingExactlyOneActiveCounterPollsSoonOthersKeepTheInterval) {
  auto red = vrfConfig->configIs("red");
  startQuiet();
  sm->updateMfibCounter(a_, 7, true);
  am.runUntil(nextPoll());
  Vex::Seconds const next = nextPoll();
  am.advanceBy(0.5);
  bool soon = true;
  switch (GetParam()) {
    case Write::clearOnlyActive:
      red->clearCounterRouteIs(a_, 1);
      EXPECT_EQ(row(a_).value(), 0);
      break;
    case Write::reactivateOnlyActive: sm->setMfibCounterActive(a_, true); break;
    case Write::inactiveBesideOnlyActive: sm->updateMfibCounter(b_, 0, false); break;
    case Write::secondActive:
      sm->updateMfibCounter(b_, 0, true);
      soon = false;
      break;
    case Write::lastGoesInactive:
      sm->setMfibCounterActive(a_, false);
      soon = false;
      break;
  }
  EXPECT_DOUBLE_EQ(nextPoll(), soon ? am.now() + 0.1 : next);
}

INSTANTIATE_TEST_SUITE_P(Writes, CounterRewriteTest,
                         ::testing::Values(Write::clearOnlyActive, Write::reactivateOnlyActive,
                                           Write::inactiveBesideOnlyActive, Write::secondActive,
                                           Write::lastGoesInactive),
                         [](auto const& info) {
                           switch (info.param) {
                             case Write::clearOnlyActive: return "ClearOfTheOnlyActiveRow";
                             case Write::reactivateOnlyActive: return "ActiveChangeRewritingTheOnlyActiveRow";
                             case Write::inactiveBesideOnlyActive: return "InactiveRowBesideTheOnlyActiveOne";
                             case Write::secondActive: return "SecondActiveRow";
                             case Write::lastGoesInactive: return "LastActiveRowGoingInactive";
                           }
                           return "";
                         });

TEST_F(CounterTest, ReadsOfTheOnlyActiveCounterKeepTheCadenceOfPollingRuns) {
  startQuiet();
  sm->updateMfibCounter(a_, 0, true);
  helper->counterReads[a_.pretty()] = 5;
  Vex::Seconds run = nextPoll();
  for (int i = 0; i < 3; ++i) {
    am.runUntil(run);
    // The run's own update asked for a run 0.1 s later; the run then re-armed at its interval.
    EXPECT_DOUBLE_EQ(nextPoll(), run + 2.0);
    run = nextPoll();
  }
  EXPECT_EQ(reads(), 3U);
  EXPECT_EQ(row(a_).value(), 15);
}

// ---- capacity ----------------------------------------------------------------------

TEST_F(CounterTest, FullTableAgesOutLowestCounterFirst) {
  counterCtl->capacityIs(2);
  startQuiet();
  sm->updateMfibCounter(b_, 1, true);
  sm->updateMfibCounter(a_, 2, false);
  sm->updateMfibCounter(c_, 3, true);
  sm->updateMfibCounter(d_, 4, true);
  sm->updateMfibCounter(d_, 5, true);  // an existing row makes no room
  EXPECT_EQ(helper->calls, (Strings{call("ageOutHwMcastCounter", a_), call("ageOutHwMcastCounter", b_)}));
  EXPECT_TRUE(capture->contains(" Aging out counter " + a_.pretty()));
  EXPECT_EQ(shadow(), (std::vector<Counter>{row(c_), row(d_)}));
  EXPECT_EQ(row(a_).updateTime(), 0.0);
  EXPECT_EQ(row(d_).value(), 5);
  EXPECT_EQ(counterCtl->currSize(), 2U);
  EXPECT_EQ(counterCtl->currActive(), 2U);
}

// ---- configuration -------------------------------------------------------------------

TEST_F(CounterTest, AllCounterOffDeletesWildcardAndEveryPublishedCounter) {
  vrfConfig->allCounterIs(true);
  startQuiet();
  sm->updateMfibCounter(a_, 5, true);
  sm->updateMfibCounter(b_, 6, false);
  vrfConfig->allCounterIs(false);
  EXPECT_EQ(helper->calls, Strings{"doDeleteMrouteCounter(" + wildcard() + ")"});
  EXPECT_EQ(counterStatus->size(), 0U);
  EXPECT_TRUE(shadow().empty());
  EXPECT_EQ(counterCtl->currSize(), 0U);
  EXPECT_EQ(counterCtl->currActive(), 0U);

  helper->clear();
  vrfConfig->allCounterIs(true);
  EXPECT_EQ(helper->calls, Strings{"doCreateMrouteCounter(0, " + wildcard() + ")"});
}

TEST_F(CounterTest, CounterRouteWithoutAllCounterOnlyTraces) {
  auto red = vrfConfig->configIs("red");
  startQuiet();
  red->counterRouteIs(a_, true);
  EXPECT_TRUE(helper->calls.empty());
  EXPECT_TRUE(capture->contains("handleCounterRoute Key: " + a_.pretty()));
  EXPECT_TRUE(capture->contains(" wildcard mode not enabled "));
  EXPECT_FALSE(capture->contains(" add counter "));
}

TEST_F(CounterTest, CounterRouteCreatesUnderItsVrfIdAndDeletes) {
  l3Status->vrfIs("red", 7);
  l3Status->vrfIs("blue", 9);
  vrfConfig->allCounterIs(true);
  auto red = vrfConfig->configIs("red");
  startQuiet();
  auto blue = vrfConfig->configIs("blue");  // configured after start
  red->counterRouteIs(a_, true);
  blue->counterRouteIs(b_, true);
  red->counterRouteIs(a_, false);
  blue->counterRouteDel(b_);
  EXPECT_EQ(helper->calls, (Strings{"doCreateMrouteCounter(7, " + a_.pretty() + ")", "doCreateMrouteCounter(9, " + b_.pretty() + ")",
                                    call("doDeleteMrouteCounter", a_), call("doDeleteMrouteCounter", b_)}));

  vrfConfig->configDel("blue");
  helper->clear();
  blue->counterRouteIs(b_, true);
  EXPECT_TRUE(helper->calls.empty());
}

TEST_F(CounterTest, RouteClearZeroesItsPublishedRowOnly) {
  auto red = vrfConfig->configIs("red");
  startQuiet();
  sm->updateMfibCounter(a_, 50, false);
  sm->updateMfibCounter(b_, 20, true);
  am.advanceBy(1.0);
  red->clearCounterRouteIs(a_, 1);
  red->clearCounterRouteIs(c_, 1);
  EXPECT_EQ(helper->calls, (Strings{call("doClearMrouteCounter", a_), call("doClearMrouteCounter", c_)}));
  EXPECT_EQ(row(a_), Counter(a_, 0, kStart + 1.0, false));
  EXPECT_EQ(row(b_), Counter(b_, 20, kStart, true));
  EXPECT_EQ(counterStatus->size(), 2U);
}

TEST_F(CounterTest, CounterModeChangeClearsEveryCounterThroughTheWildcard) {
  startQuiet();
  sm->updateMfibCounter(a_, 50, true);
  sm->updateMfibCounter(b_, 20, false);
  am.advanceBy(1.0);
  vrfConfig->counterModeIs(CounterMode::bytes);
  EXPECT_EQ(helper->calls, (Strings{"handleMrouteCounterMode(bytes)", "doClearMrouteCounter(" + wildcard() + ")"}));
  EXPECT_EQ(row(a_), Counter(a_, 0, kStart + 1.0, true));
  EXPECT_EQ(row(b_), Counter(b_, 0, kStart + 1.0, false));
  EXPECT_EQ(counterCtl->currSize(), 2U);
  EXPECT_EQ(counterCtl->currActive(), 1U);
}

}  // namespace
