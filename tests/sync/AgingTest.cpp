// Route aging review of the per-chip state machine: when a review is
// scheduled, how it is cut into time-bounded slices and resumed, which routes
// are polled and stamped, and the hit-bit request/response exchange.
//
// Virtual time throughout: the recording hook charges costPerCall seconds per
// hook call, so a slice stops after a known number of hit-bit reads.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Trace.h"
#include "sync/MrouteSwitchSm.h"
#include "tests/doubles/RecordingMrouteHelper.h"

namespace {

using Fal::MrouteHitAction;
using Fal::MrouteHitRequest;
using Netcore::IntfId;
using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::VrfConfig;
using Routing::Multicast::Fib::Hardware::RouteStatus;
using Routing::Multicast::Fib::Hardware::Status;
using SmPtr = Vex::Ptr<Fal::MrouteSwitchSm>;

IpGenRouteKey sg(int n) {
  return IpGenRouteKey(Netcore::IpGenPrefix("10.0." + std::to_string(n / 256) + "." + std::to_string(n % 256) + "/32"),
                       Netcore::IpGenPrefix("239.1.1.1/32"));
}
IpGenRouteKey sg6(int n) {
  return IpGenRouteKey(Netcore::IpGenPrefix("2001:db8::" + std::to_string(n) + "/128"), Netcore::IpGenPrefix("ff3e::1/128"));
}

// The text the recording hook writes for one hit-bit read.
std::string hitCall(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key, unsigned vlan, bool fastdrop) {
  std::ostringstream os;
  os << "mrouteHitBit(" << chip << ", " << vrfId << ", " << key << ", " << vlan << ", " << (fastdrop ? "true" : "false")
     << ")";
  return os.str();
}

std::vector<std::string> sorted(std::vector<std::string> v) {
  std::sort(v.begin(), v.end());
  return v;
}

template <class F>
std::string fatalTextOf(F&& f) {
  try {
    f();
  } catch (Vex::FatalError const& e) {
    return e.what();
  }
  return "";
}

// Stands in for the process that owns the hit-bit cache: it notes each new
// request and echoes it into the responses when told to.
class HitCacheOwner : public Fal::MrouteHitConfig::Notifiee {
 public:
  void onRequest(std::uint32_t id) override {
    if (notifier()->requests().find(id)) pending_.push_back(id);
  }
  void answer(Fal::MrouteHitStatus& status) {
    std::vector<std::uint32_t> ids;
    ids.swap(pending_);
    for (std::uint32_t id : ids) {
      if (notifier()->requests().find(id)) status.responseIs(notifier()->request(id));
    }
  }

 private:
  std::vector<std::uint32_t> pending_;
};

class AgingFixture : public ::testing::Test {
 protected:
  static constexpr std::uint32_t kChip = 1;
  // More slices than any review here needs: a walk that never ends fails instead of hanging.
  static constexpr int kMaxSlices = 100;

  explicit AgingFixture(bool async) : async_(async) {}

  void SetUp() override {
    previousFatal_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
    traceLevels_ = Vex::traceHandle("FalMroute").levels();
    Vex::traceHandle("FalMroute").enable(0, 9);
    Vex::traceSinkAdd(trace_);
    l3Status_->vrfIs("default", 1);
    l3Status_->vrfIs("red", 2);
    intfVlan_->mappingIs(IntfId::vlan(100), Bridging::VlanId(100));
    intfVlan_->mappingIs(IntfId::vlan(200), Bridging::VlanId(200));
    owner_.notifierIs(hitConfig_);
    sm_ = makeSm(kChip, switch_);
    helper_->clear();
  }

  void TearDown() override {
    finish(sm_);
    sm_ = nullptr;
    Vex::traceSinkDel(trace_);
    Vex::traceHandle("FalMroute").levelsIs(traceLevels_);
    Vex::fatalHandlerIs(previousFatal_);
  }

  Vex::Ptr<Fal::MrouteSwitch> makeSwitch(std::uint32_t chip) {
    return Fal::mrouteSwitchFactory(chip, acsd_, l3Status_, helper_, ipStatus_, hw4_, hw6_);
  }

  // A state machine with its aging clock attached before it is initialized,
  // so that it starts idle with the clock disarmed.
  SmPtr makeSm(std::uint32_t chip, Vex::Ptr<Fal::MrouteSwitch> const& sw) {
    auto acsd = Vex::make<Fal::FalCommonSmData>(verifyData_);
    auto sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(chip, acsd, l3Status_, sw, intfVlan_, cfg4_, cfg6_, hw4_, hw6_, helper_,
                                                    am_.clockNew(), am_.clockNew(), ethDir_, allDir_, localDir_, async_,
                                                    hitConfig_, hitStatus_);
    sm->agingClockIs(am_.clockNew());
    acsd->initializedIs(true);
    sm->handleInitialized();
    return sm;
  }

  // Completes a review left under way, so the process-wide bookmark is clean for the next test.
  void finish(SmPtr const& sm) {
    if (!sm) return;
    helper_->costPerCall = 0;
    sm->agingReviewQuotaIs(1e9);
    for (int i = 0; i < kMaxSlices && sm->routeAgingReviewInProgress() && !sm->routeHitCacheRefreshInProgress(); ++i) {
      if (!fatalTextOf([&] { sm->doRouteAgingReview(); }).empty()) break;
    }
  }

  // A route in the hardware status of hw, optionally programmed on the switch
  // with the VLAN of its accepting interface.
  Vex::Ptr<RouteStatus> addRoute(Status& hw, L3::VrfName const& vrf, IpGenRouteKey const& key,
                                 IntfId accepting = IntfId::vlan(100), bool program = true, std::uint16_t rpaId = 0) {
    auto rs = hw.vrfStatusIs(vrf)->routeIs(key);
    rs->acceptingIntfIdIs(accepting);
    if (program) {
      switch_->doAllocateRoute(key, intfVlan_->intfIdToVlanId(accepting), false, nullptr, false, false, rpaId, vrf);
      EXPECT_TRUE(programmed(key, accepting));
    }
    return rs;
  }
  Vex::Ptr<Fal::Route> programmed(IpGenRouteKey const& key, IntfId accepting) {
    auto h = switch_->routeKeyToHandle(Fal::RouteKeyVlanId(key, intfVlan_->intfIdToVlanId(accepting)));
    return h.isNull() ? nullptr : switch_->route(h);
  }
  // The routes of a VRF in the order a review walks them.
  std::vector<IpGenRouteKey> walkOrder(Status const& hw, L3::VrfName const& vrf) {
    std::vector<IpGenRouteKey> order;
    for (auto it = hw.vrfStatus(vrf)->routeIterator(); !it.done(); ++it) order.push_back(it.key());
    return order;
  }

  std::vector<std::string> hitCalls() const { return helper_->callsTo("mrouteHitBit("); }
  std::vector<std::string> otherCalls() const {
    std::vector<std::string> out;
    for (auto const& c : helper_->calls)
      if (c.rfind("mrouteHitBit(", 0) != 0) out.push_back(c);
    return out;
  }

  // Lets the cache owner answer what was asked, and delivers what that caused.
  void answer() {
    owner_.answer(*hitStatus_);
    am_.runUntil(am_.now());
  }
  // Runs the loop to the aging clock's expiry; with requests, the owner answers.
  void expire(SmPtr const& sm) {
    am_.runUntil(sm->agingClock()->timeMin());
    answer();
  }
  void expire() { expire(sm_); }
  // Starts a review now.
  void startReview(SmPtr const& sm) {
    sm->agingClock()->timeMinIs(am_.now());
    expire(sm);
  }
  void startReview() { startReview(sm_); }
  // Runs a review from its start to its end; returns the hit-bit reads of each slice.
  std::vector<std::size_t> runReview() {
    std::vector<std::size_t> perSlice;
    std::size_t before = hitCalls().size();
    startReview();
    for (int i = 0; i < kMaxSlices; ++i) {
      perSlice.push_back(hitCalls().size() - before);
      before = hitCalls().size();
      if (!sm_->routeAgingReviewInProgress()) return perSlice;
      EXPECT_EQ(sm_->agingClock()->timeMin(), am_.now() + Fal::MrouteSwitchSm::kAgingReviewInterval);
      expire();
    }
    ADD_FAILURE() << "the review did not complete";
    return perSlice;
  }
  // The rest of a review under way; false when it does not complete.
  bool completeReview() {
    for (int i = 0; i < kMaxSlices && sm_->routeAgingReviewInProgress(); ++i) expire();
    return !sm_->routeAgingReviewInProgress();
  }

  bool const async_;
  Vex::ActivityManager am_;
  std::shared_ptr<Vex::CaptureTraceSink> trace_ = std::make_shared<Vex::CaptureTraceSink>();
  Vex::FatalHandler previousFatal_;
  std::uint16_t traceLevels_ = 0;
  Vex::Ptr<Fal::VerifyData> verifyData_ = Vex::make<Fal::VerifyData>();
  Vex::Ptr<Fal::FalCommonSmData> acsd_ = Vex::make<Fal::FalCommonSmData>(verifyData_);
  Vex::Ptr<Fal::L3Status> l3Status_ = Vex::make<Fal::L3Status>();
  Vex::Ptr<FalTest::RecordingMrouteHelper> helper_ = Vex::make<FalTest::RecordingMrouteHelper>();
  Vex::Ptr<Ip::Status> ipStatus_ = Vex::make<Ip::Status>();
  Vex::Ptr<Status> hw4_ = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Status> hw6_ = Vex::make<Status>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<VrfConfig> cfg4_ = Vex::make<VrfConfig>();
  Vex::Ptr<VrfConfig> cfg6_ = Vex::make<VrfConfig>();
  Vex::Ptr<IntfVlanId::Table> intfVlan_ = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Interface::EthIntfStatusDir> ethDir_ = Vex::make<Interface::EthIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusDir> allDir_ = Vex::make<Interface::AllIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusLocalDir> localDir_ = Vex::make<Interface::AllIntfStatusLocalDir>();
  Vex::Ptr<Fal::MrouteHitConfig> hitConfig_ = Vex::make<Fal::MrouteHitConfig>();
  Vex::Ptr<Fal::MrouteHitStatus> hitStatus_ = Vex::make<Fal::MrouteHitStatus>();
  HitCacheOwner owner_;
  Vex::Ptr<Fal::MrouteSwitch> switch_ = makeSwitch(kChip);
  SmPtr sm_;
};

// Both ways of reading hit bits: false = direct cache hooks, true = requests and responses.
class AgingTest : public AgingFixture, public ::testing::WithParamInterface<bool> {
 protected:
  AgingTest() : AgingFixture(GetParam()) {}
};
class DirectAgingTest : public AgingFixture {
 protected:
  DirectAgingTest() : AgingFixture(false) {}
};
class AsyncAgingTest : public AgingFixture {
 protected:
  AsyncAgingTest() : AgingFixture(true) {}
};

INSTANTIATE_TEST_SUITE_P(HitReading, AgingTest, ::testing::Values(false, true),
                         [](auto const& info) { return info.param ? "Requests" : "DirectHooks"; });

// ---- scheduling ----

TEST_F(DirectAgingTest, FirstRouteArmsTheClockOnceAndLastRouteDisarmsIt) {
  cfg4_->activityPollingIntervalIs(7);
  auto const clock = sm_->agingClock();
  std::uint32_t const kick = switch_->mrouteReviewKick();

  sm_->maybeScheduleAgingReview();  // empty table, idle clock: only a kick
  EXPECT_EQ(clock->timeMin(), Vex::kNever);
  EXPECT_EQ(switch_->mrouteReviewKick(), kick + 1);
  EXPECT_EQ(trace_->count("Kick review to program the unprogrammed multicast routes if any"), 1u);

  am_.runFor(1.0);
  addRoute(*hw4_, "default", sg(1));
  sm_->maybeScheduleAgingReview();
  EXPECT_EQ(clock->timeMin(), 8.0);
  EXPECT_TRUE(trace_->contains("maybeScheduleAgingReview, Mroutes: 1"));
  EXPECT_EQ(trace_->count("First mroute, enabling aging review in 7s"), 1u);

  am_.runFor(2.0);
  addRoute(*hw4_, "default", sg(2));
  sm_->maybeScheduleAgingReview();
  EXPECT_EQ(clock->timeMin(), 8.0);
  EXPECT_EQ(trace_->count("First mroute"), 1u);

  for (int n : {1, 2}) switch_->doDeleteRoute(programmed(sg(n), IntfId::vlan(100))->routeHandle());
  sm_->maybeScheduleAgingReview();
  EXPECT_EQ(clock->timeMin(), Vex::kNever);
  EXPECT_EQ(trace_->count("Last mroute, disabling aging review"), 1u);
  EXPECT_EQ(switch_->mrouteReviewKick(), kick + 1);
  am_.runFor(10.0);
  EXPECT_TRUE(helper_->callsTo("mrouteHitBitCacheRefresh").empty());
}

TEST_F(DirectAgingTest, EmptyingTheTableCountsTowardRoutingDisableOnlyWhenBothFamiliesAreOff) {
  struct Case {
    bool v4Enabled, v6Enabled;
    std::uint32_t refCnt;
  };
  for (Case c : {Case{true, false, 0}, Case{false, true, 0}, Case{false, false, 1}}) {
    hw4_->enabledIs(c.v4Enabled);
    hw6_->enabledIs(c.v6Enabled);
    addRoute(*hw4_, "default", sg(1));
    sm_->maybeScheduleAgingReview();
    switch_->doDeleteRoute(programmed(sg(1), IntfId::vlan(100))->routeHandle());
    sm_->maybeScheduleAgingReview();
    EXPECT_EQ(l3Status_->waitForRoutingDisabledRefCnt(), c.refCnt) << c.v4Enabled << c.v6Enabled;
  }
}

// ---- one review ----

TEST_P(AgingTest, ReviewStampsHitRoutesOfBothFamiliesAndRearmsForTheNextPass) {
  auto r1 = addRoute(*hw4_, "default", sg(1));
  auto r2 = addRoute(*hw4_, "default", sg(2));
  auto r3 = addRoute(*hw4_, "red", sg(3));
  auto r6 = addRoute(*hw6_, "default", sg6(1));
  helper_->hitRoutes = {sg(1).pretty(), sg(3).pretty(), sg6(1).pretty()};
  std::uint32_t const kick = switch_->mrouteReviewKick();
  helper_->clear();
  am_.runFor(5.0);

  startReview();

  EXPECT_EQ(sorted(hitCalls()), sorted({hitCall(kChip, 1, sg(1), 100, false), hitCall(kChip, 1, sg(2), 100, false),
                                        hitCall(kChip, 2, sg(3), 100, false), hitCall(kChip, 1, sg6(1), 100, false)}));
  EXPECT_EQ(r1->lastPollTime(), 5.0);
  EXPECT_EQ(r2->lastPollTime(), 0.0);
  EXPECT_EQ(r3->lastPollTime(), 5.0);
  EXPECT_EQ(r6->lastPollTime(), 5.0);
  EXPECT_TRUE(trace_->contains("Updating activity bits for route " + sg(1).pretty()));
  EXPECT_TRUE(trace_->contains("Review completed"));
  EXPECT_TRUE(trace_->contains("Kick off a new Mroute review in the MrouteProgrammer"));
  EXPECT_FALSE(sm_->routeAgingReviewInProgress());
  EXPECT_EQ(sm_->agingClock()->timeMin(), 5.0 + VrfConfig::kDefaultActivityPollingInterval);
  EXPECT_EQ(switch_->mrouteReviewKick(), kick + 1);
  EXPECT_EQ(verifyData_->verifyRequests(), 0u);  // verification is off
  if (GetParam()) {
    EXPECT_EQ(otherCalls(), std::vector<std::string>{"doCommitMrouteBatch()"});
    EXPECT_TRUE(trace_->contains("Send Read MrouteHitReuqest for ReqId:1"));
    EXPECT_TRUE(trace_->contains("handleMrouteHitResponse ,Trigger mroute aging review."));
    EXPECT_FALSE(hitConfig_->requests().find(1));  // the answered read is withdrawn
    EXPECT_EQ(hitConfig_->request(2), MrouteHitRequest(2, MrouteHitAction::clear));
    EXPECT_TRUE(trace_->contains("Send Clear MrouteHitReuqest for ReqId:2"));
    answer();  // a cleared cache only withdraws the request
    EXPECT_EQ(hitConfig_->requestSize(), 0u);
    EXPECT_FALSE(sm_->routeAgingReviewInProgress());
    EXPECT_EQ(hitCalls().size(), 4u);
  } else {
    EXPECT_EQ(otherCalls(), (std::vector<std::string>{"mrouteHitBitCacheRefresh(1)", "doCommitMrouteBatch()",
                                                      "mrouteHitBitCacheClear(1)"}));
    EXPECT_EQ(helper_->calls.front(), "mrouteHitBitCacheRefresh(1)");
  }

  // The next pass comes activityPollingInterval later and stamps again.
  expire();
  EXPECT_EQ(r1->lastPollTime(), 15.0);
  EXPECT_EQ(hitCalls().size(), 8u);
}

TEST_P(AgingTest, NoVrfsCompletesAtOnce) {
  startReview();
  EXPECT_TRUE(trace_->contains("VrfItr not found - restarting review"));
  EXPECT_TRUE(trace_->contains("Review completed"));
  EXPECT_FALSE(sm_->routeAgingReviewInProgress());
  EXPECT_EQ(sm_->agingClock()->timeMin(), am_.now() + VrfConfig::kDefaultActivityPollingInterval);
  EXPECT_TRUE(hitCalls().empty());
  if (GetParam()) {
    EXPECT_EQ(hitConfig_->request(2), MrouteHitRequest(2, MrouteHitAction::clear));
  } else {
    EXPECT_EQ(helper_->calls, (std::vector<std::string>{"mrouteHitBitCacheRefresh(1)", "doCommitMrouteBatch()",
                                                        "mrouteHitBitCacheClear(1)"}));
  }
}

TEST_P(AgingTest, CompletedReviewRequestsVerificationWhenVerifying) {
  addRoute(*hw4_, "default", sg(1));
  verifyData_->verifyIs(true);
  std::uint64_t const before = verifyData_->verifyRequests();
  startReview();
  EXPECT_FALSE(sm_->routeAgingReviewInProgress());
  EXPECT_EQ(verifyData_->verifyRequests(), before + 1);
}

TEST_P(AgingTest, SkipRulesDecideWhichRoutesArePolledAndStamped) {
  IntfId const noVlan = IntfId::ethernet(1);
  auto flag1 = addRoute(*hw4_, "default", sg(1));
  flag1->flagsIs(1);
  auto flag2 = addRoute(*hw4_, "default", sg(2));
  flag2->flagsIs(2);
  auto fastdropOnly = addRoute(*hw4_, "default", sg(3), noVlan);
  fastdropOnly->fastdropIs(IntfId::vlan(200));
  fastdropOnly->fastdropIs(IntfId::vlan(300));  // no VLAN: not read
  auto pollWithoutVlan = addRoute(*hw4_, "default", sg(4), noVlan);
  pollWithoutVlan->pollWithoutVlanIs(true);
  auto withRpa = addRoute(*hw4_, "default", sg(5), noVlan, true, 5);
  auto notHeld = addRoute(*hw4_, "default", sg(6), noVlan, false);
  auto noAge = addRoute(*hw4_, "default", sg(7));
  programmed(sg(7), IntfId::vlan(100))->noAgeIs(true);
  auto noAgeNoVlan = addRoute(*hw4_, "default", sg(8), noVlan);
  programmed(sg(8), noVlan)->noAgeIs(true);
  auto plain = addRoute(*hw4_, "default", sg(9));
  for (int n = 1; n <= 9; ++n) helper_->hitRoutes.insert(sg(n).pretty());
  helper_->hitRoutes.erase(sg(5).pretty());
  helper_->clear();
  am_.runFor(3.0);

  startReview();

  EXPECT_EQ(sorted(hitCalls()),
            sorted({hitCall(kChip, 1, sg(3), 200, true), hitCall(kChip, 1, sg(4), 0, false),
                    hitCall(kChip, 1, sg(5), 0, false), hitCall(kChip, 1, sg(6), 0, false),
                    hitCall(kChip, 1, sg(9), 100, false)}));
  EXPECT_EQ(flag1->lastPollTime(), 0.0);
  EXPECT_EQ(flag2->lastPollTime(), 0.0);
  EXPECT_EQ(fastdropOnly->lastPollTime(), 0.0);
  EXPECT_EQ(fastdropOnly->fastdropLastPollTime(IntfId::vlan(200)), 3.0);
  EXPECT_EQ(fastdropOnly->fastdropLastPollTime(IntfId::vlan(300)), 0.0);
  EXPECT_EQ(pollWithoutVlan->lastPollTime(), 3.0);
  EXPECT_EQ(withRpa->lastPollTime(), 0.0);  // polled, not hit
  EXPECT_EQ(notHeld->lastPollTime(), 3.0);
  EXPECT_EQ(noAge->lastPollTime(), 3.0);
  EXPECT_EQ(noAgeNoVlan->lastPollTime(), 3.0);
  EXPECT_EQ(plain->lastPollTime(), 3.0);
  EXPECT_EQ(trace_->count("No accepting vlan for the route. Check fastdrops"), 2u);
  EXPECT_TRUE(trace_->contains(" Forcing hit for " + sg(7).pretty()));
  EXPECT_TRUE(trace_->contains("Updating activity bits for fastdrop route" + sg(3).pretty() + " on vlan 200"));
}

// ---- slices ----

TEST_P(AgingTest, LongReviewContinuesWhereItStoppedAndPollsEveryRouteOnce) {
  std::vector<Vex::Ptr<RouteStatus>> all;
  for (int n = 1; n <= 12; ++n) all.push_back(addRoute(*hw4_, "default", sg(n)));
  for (int n = 20; n < 28; ++n) all.push_back(addRoute(*hw4_, "red", sg(n)));
  for (int n = 1; n <= 5; ++n) all.push_back(addRoute(*hw6_, "default", sg6(n)));
  for (auto const& r : all) helper_->hitRoutes.insert(r->key().pretty());
  helper_->clear();
  helper_->costPerCall = 0.02;  // three reads overrun the 0.05 s quota

  std::vector<std::size_t> const perSlice = runReview();

  // IPv4 in slices of three; its last two reads leave IPv6 a quota of its own.
  EXPECT_EQ(perSlice, (std::vector<std::size_t>{3, 3, 3, 3, 3, 3, 2 + 3, 2}));
  EXPECT_EQ(trace_->count("Continue RouteAgingReview"), perSlice.size() - 1);
  EXPECT_TRUE(trace_->contains("Route aging review quota reached (reviewed 2 routes)"));
  std::map<std::string, int> polls;
  for (auto const& c : hitCalls()) ++polls[c];
  EXPECT_EQ(polls.size(), all.size());
  for (auto const& [call, n] : polls) EXPECT_EQ(n, 1) << call;
  for (auto const& r : all) EXPECT_GT(r->lastPollTime(), 0.0) << r->key();
}

TEST_P(AgingTest, QuotaTraceCountsVisitedRoutesOneLowerAndFlaggedRoutesAreFree) {
  for (int n = 1; n <= 8; ++n) addRoute(*hw4_, "default", sg(n));
  auto const order = walkOrder(*hw4_, "default");
  for (int i : {0, 1}) hw4_->vrfStatus("default")->route(order[i])->flagsIs(1);
  helper_->clear();
  helper_->costPerCall = 0.02;

  startReview();

  EXPECT_EQ(hitCalls(), (std::vector<std::string>{hitCall(kChip, 1, order[2], 100, false),
                                                  hitCall(kChip, 1, order[3], 100, false),
                                                  hitCall(kChip, 1, order[4], 100, false)}));
  EXPECT_TRUE(trace_->contains("Route aging review quota reached (reviewed 4 routes)"));
}

TEST_P(AgingTest, RouteDeletedBetweenSlicesResumesAtTheFollowingRoute) {
  for (int n = 1; n <= 10; ++n) addRoute(*hw4_, "default", sg(n));
  auto const order = walkOrder(*hw4_, "default");
  helper_->clear();
  helper_->costPerCall = 0.02;

  startReview();
  ASSERT_EQ(hitCalls().size(), 3u);
  EXPECT_EQ(hitCalls().back(), hitCall(kChip, 1, order[2], 100, false));
  hw4_->vrfStatus("default")->routeDel(order[3]);  // the bookmarked route
  helper_->clear();

  expire();
  EXPECT_TRUE(trace_->contains("Current routeIter: " + order[3].pretty()));
  EXPECT_EQ(hitCalls(), (std::vector<std::string>{hitCall(kChip, 1, order[4], 100, false),
                                                  hitCall(kChip, 1, order[5], 100, false),
                                                  hitCall(kChip, 1, order[6], 100, false)}));
  ASSERT_TRUE(completeReview());
  EXPECT_EQ(hitCalls().size(), 6u);  // order[4..9]
}

TEST_P(AgingTest, VrfDeletedBetweenSlicesResumesAtTheFirstRouteOfTheNextVrf) {
  for (int n = 1; n <= 5; ++n) addRoute(*hw4_, "default", sg(n));
  for (int n = 20; n < 25; ++n) addRoute(*hw4_, "red", sg(n));
  auto firstVrf = hw4_->vrfStatusIterator();
  L3::VrfName const gone = firstVrf.key();
  ++firstVrf;
  L3::VrfName const next = firstVrf.key();
  auto const nextOrder = walkOrder(*hw4_, next);
  helper_->clear();
  helper_->costPerCall = 0.02;

  startReview();
  ASSERT_EQ(hitCalls().size(), 3u);
  hw4_->vrfStatusDel(gone);
  helper_->clear();

  expire();
  ASSERT_FALSE(hitCalls().empty());
  std::uint16_t const nextId = next == L3::VrfName("red") ? 2 : 1;
  EXPECT_EQ(hitCalls().front(), hitCall(kChip, nextId, nextOrder[0], 100, false));
}

TEST_F(DirectAgingTest, ChipsShareOneBookmark) {
  for (int n = 1; n <= 10; ++n) addRoute(*hw4_, "default", sg(n));
  auto const order = walkOrder(*hw4_, "default");
  auto sw2 = makeSwitch(2);
  auto sm2 = makeSm(2, sw2);
  helper_->clear();
  helper_->costPerCall = 0.02;

  startReview();  // chip 1 stops after order[2]
  ASSERT_EQ(hitCalls().size(), 3u);
  sm_->agingClock()->timeMinIs(Vex::kNever);  // chip 1 stays paused
  helper_->clear();
  startReview(sm2);
  ASSERT_FALSE(hitCalls().empty());
  EXPECT_EQ(hitCalls().front(), hitCall(2, 1, order[3], 100, false));
  finish(sm2);
}

// ---- requests and responses ----

TEST_P(AgingTest, ReviewSliceOutsideAReviewIsRefused) {
  EXPECT_EQ(fatalTextOf([&] { sm_->doRouteAgingReview(); }),
            "routeAgingReviewInProgress() && !routeHitCacheRefreshInProgress()");
}

TEST_F(DirectAgingTest, ResponseWithDirectHooksIsRefused) {
  EXPECT_EQ(fatalTextOf([&] { sm_->handleMrouteHitResponse(1); }), "usingAsyncMrouteHit()");
}

TEST_F(AsyncAgingTest, ClockExpiryWhileReadIsOutstandingOnlyWaits) {
  addRoute(*hw4_, "default", sg(1));
  sm_->agingClock()->timeMinIs(am_.now());
  am_.runUntil(am_.now());  // read 1 sent, not answered
  ASSERT_TRUE(sm_->routeHitCacheRefreshInProgress());
  helper_->clear();

  sm_->agingClock()->timeMinIs(am_.now() + 1);
  am_.runFor(1);
  EXPECT_EQ(trace_->count("RouteHitCacheRefresh is in Progress, waiting for response"), 1u);
  EXPECT_EQ(hitConfig_->requestSize(), 1u);
  EXPECT_EQ(sm_->mrouteHitRequestId(), 1u);
  EXPECT_TRUE(helper_->calls.empty());
  EXPECT_EQ(fatalTextOf([&] { sm_->doRouteAgingReview(); }),
            "routeAgingReviewInProgress() && !routeHitCacheRefreshInProgress()");

  answer();  // the read is answered: the review runs
  EXPECT_FALSE(sm_->routeHitCacheRefreshInProgress());
  EXPECT_EQ(hitCalls().size(), 1u);
}

TEST_F(AsyncAgingTest, ReadResponseMustAnswerTheLastRequest) {
  sm_->agingClock()->timeMinIs(am_.now());
  am_.runUntil(am_.now());
  ASSERT_EQ(sm_->mrouteHitRequestId(), 1u);
  EXPECT_EQ(fatalTextOf([&] {
              hitStatus_->responseIs(MrouteHitRequest(7, MrouteHitAction::read));
              am_.runUntil(am_.now());
            }),
            "requestId == mrouteHitRequestId()");
}

TEST_F(AsyncAgingTest, UnansweredOrDefaultResponseIsIgnored) {
  hitConfig_->requestIs(MrouteHitRequest(3, MrouteHitAction::clear));
  sm_->handleMrouteHitResponse(3);  // nothing under 3 yet
  hitStatus_->responseIs(MrouteHitRequest(0, MrouteHitAction::read));
  am_.runUntil(am_.now());
  EXPECT_EQ(hitConfig_->requestSize(), 1u);
  EXPECT_FALSE(sm_->routeAgingReviewInProgress());
  EXPECT_FALSE(trace_->contains("hitbit status received"));
}

TEST_F(AsyncAgingTest, ResponsesAlreadyPresentAreHandledOnRequest) {
  // A clear the cache owner answered while nobody listened.
  hitConfig_->requestIs(MrouteHitRequest(4, MrouteHitAction::clear));
  owner_.notifierIs(nullptr);
  sm_->hasNotificationActiveIs(false);
  hitStatus_->responseIs(MrouteHitRequest(4, MrouteHitAction::clear));
  sm_->hasNotificationActiveIs(true);
  ASSERT_EQ(hitConfig_->requestSize(), 1u);

  sm_->handleMrouteHitResponse();
  EXPECT_EQ(hitConfig_->requestSize(), 0u);
  EXPECT_TRUE(trace_->contains("handleMrouteHitResponse ,hitbit status received for reqId: 0"));
  EXPECT_FALSE(sm_->routeAgingReviewInProgress());
}

// Hit bits through requests and responses, with one of the two entities
// missing; the agent initialized before the state machine is made, or after.
struct MissingHitEntityCase {
  bool configGiven;  // else the status is the one missing
  bool initializedFirst;
};

class MissingHitEntityTest : public AgingFixture, public ::testing::WithParamInterface<MissingHitEntityCase> {
 protected:
  MissingHitEntityTest() : AgingFixture(true) {}
};

TEST_P(MissingHitEntityTest, StopsWithTheAssertionTextInsteadOfCrashing) {
  std::string const expected = "!!mrouteHitConfig() && !!mrouteHitStatus() && \"MrouteHit Config/Status must not be NULL\"";
  // Entities of its own (the fixture's state machine watches the others), and
  // a response already waiting, which the state machine reads when it is made.
  auto const config = Vex::make<Fal::MrouteHitConfig>();
  auto const status = Vex::make<Fal::MrouteHitStatus>();
  status->responseIs(MrouteHitRequest(1, MrouteHitAction::read));
  auto const acsd = Vex::make<Fal::FalCommonSmData>(verifyData_);
  acsd->initializedIs(GetParam().initializedFirst);
  SmPtr sm;
  std::string const text = fatalTextOf([&] {
    sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(2, acsd, l3Status_, makeSwitch(2), intfVlan_, cfg4_, cfg6_, hw4_, hw6_,
                                               helper_, am_.clockNew(), am_.clockNew(), ethDir_, allDir_, localDir_, true,
                                               GetParam().configGiven ? config : nullptr,
                                               GetParam().configGiven ? nullptr : status);
  });
  if (GetParam().initializedFirst) {
    EXPECT_EQ(text, expected);
    return;
  }
  EXPECT_EQ(text, "");
  ASSERT_TRUE(sm);
  // Another answer arrives before the agent is up: still nothing to act on.
  EXPECT_EQ(fatalTextOf([&] {
              status->responseIs(MrouteHitRequest(2, MrouteHitAction::read));
              am_.runUntil(am_.now());
            }),
            "");
  EXPECT_EQ(fatalTextOf([&] { acsd->initializedIs(true); }), expected);
}

INSTANTIATE_TEST_SUITE_P(Entities, MissingHitEntityTest,
                         ::testing::Values(MissingHitEntityCase{true, true}, MissingHitEntityCase{false, true},
                                           MissingHitEntityCase{true, false}, MissingHitEntityCase{false, false}),
                         [](auto const& info) {
                           return std::string(info.param.configGiven ? "NoStatus" : "NoConfig") +
                                  (info.param.initializedFirst ? "InitializedFirst" : "InitializedLater");
                         });

}  // namespace
