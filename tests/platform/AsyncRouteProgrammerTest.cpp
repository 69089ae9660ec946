// The route programmer against a recording asynchronous chip: the calls it
// makes and when (each step after the transaction it waits for completed),
// the groups it holds and gives back, failure reasons in the route status,
// parking and the retries, and an asynchronous chip beside a synchronous one.
#include <gtest/gtest.h>

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "platform/fib/hardware/Status.h"
#include "platform/fib/routing/RouteStatus.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "platform/vex/ActivityManager.h"
#include "tests/doubles/RouteShapes.h"

namespace MrouteLib {
namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::Hardware::Status;
using Calls = std::vector<std::string>;

class FakeAsyncChip;

// A group of the fake: tells its chip when the programmer lets it go.
class FakeGroup final : public MtableOifSet {
 public:
  FakeGroup(FakeAsyncChip* chip, OifSetPtr oifSet, int id) : chip_(chip), oifSet_(std::move(oifSet)), id_(id) {}
  ~FakeGroup() override;
  int id() const { return id_; }
  OifSetPtr const& oifSet() const { return oifSet_; }
  Vex::Ptr<Bolt::Xact> xact = Bolt::Xact::xactNew();

 private:
  FakeAsyncChip* chip_;
  OifSetPtr oifSet_;
  int id_;
};

// Records every call as text, shares one group per OifSet, and starts one
// transaction per group and per binding, which the tests complete.
class FakeAsyncChip final : public AsyncSwitchChip {
 public:
  explicit FakeAsyncChip(std::string name) : AsyncSwitchChip(std::move(name)) {}
  ~FakeAsyncChip() override { bindings.clear(); }

  XactPtr doAllocateMtableOifSet(RouteKeyInfo const& info, OifSetPtr oifSet, XactPtr blocking, std::uint32_t preset,
                                 bool frr) override {
    std::ostringstream os;
    os << "allocGroup " << label(oifSet) << " vrf " << info.vrfId << (frr ? " frr" : "")
       << (blocking ? " blocked" : "") << (preset == kInvalidMulticastId ? "" : " preset");
    mrouteFailureReasonIs(kFailureNone);
    if (statusWatch) sawStatus = statusWatch();
    FakeGroup* group = nullptr;
    if (auto it = live.find(oifSet.get()); it != live.end()) {
      group = it->second;
      oifSetResultIs(Vex::Ptr<MtableOifSet>(group));
    } else if (noGroup) {
      oifSetResultIs(nullptr);
      mrouteFailureReasonIs(kFailureNoMulticastId);
      calls.push_back(os.str() + " -> none");
      return nullptr;
    } else {
      auto g = Vex::make<FakeGroup>(this, oifSet, nextGroup++);
      live[oifSet.get()] = g.get();
      group = g.get();
      oifSetResultIs(g);
    }
    calls.push_back(os.str() + " -> g" + std::to_string(group->id()));
    return group->xact;
  }
  void doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan, bool bridge,
                       Memtab::Multicast::Fib::RpaIndex rpa, L3::VrfName const& vrf, bool fastdrop) override {
    std::ostringstream os;
    os << "allocRoute " << vrf << ' ' << key << " vlan " << vlan << (bridge ? " bridge" : "")
       << (fastdrop ? " fastdrop" : "") << " rpa " << rpa;
    mrouteFailureReasonIs(kFailureNone);
    if (noRoute) {
      routeHandleIs(invalidRouteHandle);
      mrouteFailureReasonIs(kFailureRouteRefused);
      os << " -> none";
    } else {
      RouteHandle const h(nextHandle++);
      routeHandleIs(h);
      bindings[h.value()] = nullptr;
      os << " -> h" << h.value();
    }
    calls.push_back(os.str());
  }
  XactPtr doSetMtableOifSet(RouteHandle handle, Vex::Ptr<MtableOifSet> set, XactPtr xact) override {
    auto const* group = static_cast<FakeGroup const*>(set.get());
    calls.push_back("bind h" + std::to_string(handle.value()) + " g" + std::to_string(group->id()) +
                    (xact && !xact->pending() ? " after its group" : " early"));
    auto x = Bolt::Xact::xactNew();
    ingress[handle.value()] = x;
    pendingBinding[handle.value()] = set;
    return x;
  }
  void doDeleteRoute(RouteHandle handle) override {
    calls.push_back("delete h" + std::to_string(handle.value()));
    bindings.erase(handle.value());
    pendingBinding.erase(handle.value());
  }
  void doSetBridgeAction(RouteHandle, bool) override {}
  void doActivateRoute(RouteHandle) override {}
  OifSetPtr doGetOifSet(Vex::Ptr<MtableOifSet const> set) override {
    return static_cast<FakeGroup const*>(set.get())->oifSet();
  }
  std::uint32_t doGetMulticastId(Vex::Ptr<MtableOifSet const> set) override {
    return static_cast<std::uint32_t>(static_cast<FakeGroup const*>(set.get())->id());
  }
  bool needIngressProgramming(Routing::Multicast::Fib::RouteKeyType) override { return true; }
  std::uint32_t doGetOifSetXactFailureReason(XactPtr xact) override {
    calls.push_back("groupReason " + std::to_string(xact->reason()));
    return xact->reason();
  }
  std::uint32_t doGetIngressXactFailureReason(XactPtr xact) override {
    calls.push_back("ingressReason " + std::to_string(xact->reason()));
    return xact->reason();
  }
  bool hasBackupSupport() const override { return false; }
  void handleFreeMtableOifSet(Vex::Ptr<MtableOifSet> const&) override {}

  void groupGone(FakeGroup* g) {
    live.erase(g->oifSet().get());
    calls.push_back("free g" + std::to_string(g->id()));
  }
  FakeGroup* groupOf(std::vector<char const*> outputs) const {
    for (auto const& [o, g] : live) {
      if (label(OifSetPtr(o)) == join(outputs)) return g;
    }
    return nullptr;
  }
  // The binding of handle completes: the route now points at its new group.
  void completeIngress(std::uint32_t handle, std::uint32_t reason = 0) {
    auto x = ingress.at(handle);
    if (reason) {
      x->failedIs(reason);
    } else {
      x->succeededIs();
      bindings[handle] = pendingBinding.at(handle);
    }
    pendingBinding.erase(handle);
  }
  Calls takeCalls() { return std::exchange(calls, {}); }

  static std::string join(std::vector<char const*> const& v) {
    std::string out;
    for (auto const* t : v) {
      if (!out.empty()) out += ',';
      out += t;
    }
    return out;
  }
  static std::string label(OifSetPtr const& s) {
    std::string out;
    for (auto const& pv : s->portVlanSet().portVlan()) {
      if (!out.empty()) out += ',';
      out += pv.stringValue();
    }
    return out;
  }

  Calls calls;
  std::map<OifSet const*, FakeGroup*> live;  // not owning: the programmer's routes hold the groups
  std::map<std::uint32_t, Vex::Ptr<MtableOifSet>> bindings;  // what each route points at in hardware
  std::map<std::uint32_t, Vex::Ptr<MtableOifSet>> pendingBinding;
  std::map<std::uint32_t, Vex::Ptr<Bolt::Xact>> ingress;
  std::function<bool()> statusWatch;
  bool sawStatus = false;
  bool noGroup = false;
  bool noRoute = false;
  int nextGroup = 0;
  std::uint32_t nextHandle = 0;
};

FakeGroup::~FakeGroup() { chip_->groupGone(this); }

constexpr auto key = &FalTest::RouteShapes::key;

IpGenRouteKey const kS1G1 = key("10.0.0.1/32", "239.1.1.1/32");
IpGenRouteKey const kS2G1 = key("10.0.0.2/32", "239.1.1.1/32");

DesiredRoute route(IpGenRouteKey k, std::vector<char const*> const& outputs, std::uint32_t vlan = 100) {
  return FalTest::RouteShapes::wanted("red", std::move(k), outputs, vlan);
}

class AsyncRouteProgrammerTest : public ::testing::Test {
 protected:
  static constexpr Vex::Seconds kStart = 50.0;

  AsyncRouteProgrammerTest() {
    vrfIds->vrfStatusIs("red", 7);
    programmer->switchChipIs(chip, vrfIds);
  }
  ~AsyncRouteProgrammerTest() override { programmer = nullptr; }

  Vex::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus> status(IpGenRouteKey const& k) {
    auto vrf = v4->vrfStatus("red");
    return vrf ? vrf->route(k) : nullptr;
  }
  // One turn of the loop: completed transactions are told.
  void turn() { am.runUntil(am.now()); }
  void completeGroup(std::vector<char const*> outputs, std::uint32_t reason = 0) {
    FakeGroup* g = chip->groupOf(outputs);
    ASSERT_NE(g, nullptr);
    if (reason) {
      g->xact->failedIs(reason);
    } else {
      g->xact->succeededIs();
    }
    turn();
  }
  // Programs r through both transactions.
  void programmed(DesiredRoute const& r, std::uint32_t handle) {
    programmer->routeIs(r);
    std::vector<char const*> outputs;
    for (auto const& pv : r.outputs().portVlan()) outputs.push_back(texts.emplace_back(pv.stringValue()).c_str());
    completeGroup(outputs);
    chip->completeIngress(handle);
    turn();
  }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(kStart)};
  std::list<std::string> texts;
  Vex::Ptr<Status> v4 = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Routing::Hardware::RouteStatus> vrfIds = Vex::make<Routing::Hardware::RouteStatus>();
  Vex::Ptr<OifSetRegistry> registry = Vex::make<OifSetRegistry>();
  Vex::Ptr<FakeAsyncChip> chip = Vex::make<FakeAsyncChip>("async0");
  Vex::Ptr<RouteProgrammer> programmer = Vex::make<RouteProgrammer>(registry, v4, nullptr);
};

TEST_F(AsyncRouteProgrammerTest, EachStepWaitsForTheTransactionBeforeIt) {
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocGroup Ethernet1.10 vrf 7 -> g0",
                                      "allocRoute red (10.0.0.1, 239.1.1.1) vlan 100 rpa 0 -> h0"}));
  EXPECT_FALSE(status(kS1G1)->programmed());
  EXPECT_EQ(programmer->routesWaiting(), 1u);
  turn();
  EXPECT_TRUE(chip->takeCalls().empty());  // nothing before the group is written

  am.advanceBy(0.25);
  completeGroup({"Ethernet1.10"});
  EXPECT_EQ(chip->takeCalls(), (Calls{"bind h0 g0 after its group"}));
  EXPECT_FALSE(status(kS1G1)->programmed());
  EXPECT_EQ(programmer->routesProgrammed(), 0u);

  am.advanceBy(0.25);
  chip->completeIngress(0);
  EXPECT_FALSE(status(kS1G1)->programmed());  // told on the next turn, not inside the completion
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(status(kS1G1)->failureReason(), RouteProgrammer::kFailureNone);
  EXPECT_EQ(programmer->routesWaiting(), 0u);
  EXPECT_EQ(programmer->routesProgrammed(), 1u);
  EXPECT_DOUBLE_EQ(programmer->longestWait(), 0.5);
  EXPECT_EQ(programmer->routeHandle(chip.get(), "red", kS1G1), RouteHandle(0));
}

TEST_F(AsyncRouteProgrammerTest, NewRouteHasItsStatusBeforeTheChipIsAsked) {
  chip->statusWatch = [this] { return status(kS1G1) != nullptr; };
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  EXPECT_TRUE(chip->sawStatus);
}

TEST_F(AsyncRouteProgrammerTest, RoutesWithEqualOutputsShareTheGroupAndBindOnceItIsWritten) {
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  programmer->routeIs(route(kS2G1, {"Ethernet1.10"}));
  EXPECT_EQ(programmer->groupsShared(), 1u);
  chip->takeCalls();
  completeGroup({"Ethernet1.10"});
  EXPECT_EQ(chip->takeCalls(), (Calls{"bind h0 g0 after its group", "bind h1 g0 after its group"}));
  chip->completeIngress(0);
  chip->completeIngress(1);
  turn();
  EXPECT_EQ(programmer->routesProgrammed(), 2u);
  // A route that comes while the group is written binds at once.
  programmer->routeIs(route(key("10.0.0.3/32", "239.1.1.1/32"), {"Ethernet1.10"}));
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocGroup Ethernet1.10 vrf 7 -> g0",
                                      "allocRoute red (10.0.0.3, 239.1.1.1) vlan 100 rpa 0 -> h2",
                                      "bind h2 g0 after its group"}));
  EXPECT_EQ(programmer->groupsShared(), 2u);
  programmer->routeDel("red", kS1G1);
  programmer->routeDel("red", kS2G1);
  EXPECT_EQ(chip->live.size(), 1u);  // the third route still holds it
}

TEST_F(AsyncRouteProgrammerTest, RepointedRouteHoldsItsOldGroupUntilTheNewBindingCompletes) {
  programmed(route(kS1G1, {"Ethernet1.10"}), 0);
  chip->takeCalls();
  programmer->routeIs(route(kS1G1, {"Ethernet2.10"}));
  completeGroup({"Ethernet2.10"});
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocGroup Ethernet2.10 vrf 7 -> g1", "bind h0 g1 after its group"}));
  EXPECT_NE(chip->groupOf({"Ethernet1.10"}), nullptr);  // the chip's route still points at it
  chip->completeIngress(0);
  turn();
  EXPECT_EQ(chip->takeCalls(), (Calls{"free g0"}));
  EXPECT_TRUE(status(kS1G1)->programmed());
}

TEST_F(AsyncRouteProgrammerTest, ChangeWhileWaitingIsProgrammedWhenTheAttemptEnds) {
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  programmer->routeIs(route(kS1G1, {"Ethernet2.10"}));
  EXPECT_EQ(chip->takeCalls().size(), 2u);  // the first attempt's calls only
  completeGroup({"Ethernet1.10"});
  chip->completeIngress(0);
  turn();
  // The first attempt ended bound to Ethernet1.10; the second begins.
  EXPECT_EQ(chip->takeCalls(), (Calls{"bind h0 g0 after its group", "allocGroup Ethernet2.10 vrf 7 -> g1"}));
  EXPECT_FALSE(status(kS1G1)->programmed());
  completeGroup({"Ethernet2.10"});
  chip->completeIngress(0);
  turn();
  EXPECT_EQ(chip->takeCalls(), (Calls{"bind h0 g1 after its group", "free g0"}));
  EXPECT_TRUE(status(kS1G1)->programmed());
}

TEST_F(AsyncRouteProgrammerTest, DeletedWhileWaitingLeavesTheChipBeforeItsGroupAndIgnoresTheCompletion) {
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  completeGroup({"Ethernet1.10"});
  chip->takeCalls();
  programmer->routeDel("red", kS1G1);
  EXPECT_EQ(chip->takeCalls(), (Calls{"delete h0", "free g0"}));
  EXPECT_EQ(programmer->routesWaiting(), 0u);
  EXPECT_EQ(status(kS1G1), nullptr);
  chip->ingress.at(0)->succeededIs();
  turn();
  EXPECT_TRUE(chip->takeCalls().empty());
}

// A transaction fails: the reason comes from the chip and goes into the status.
struct XactFailureCase {
  char const* name;
  bool ingress;
  std::uint32_t reason;
  Calls asked;
};

std::ostream& operator<<(std::ostream& os, XactFailureCase const& c) { return os << c.name; }

class AsyncXactFailureTest : public AsyncRouteProgrammerTest, public ::testing::WithParamInterface<XactFailureCase> {};

TEST_P(AsyncXactFailureTest, FailedRouteIsParkedWithTheChipsReasonAndRetriedByTheProgrammer) {
  XactFailureCase const& c = GetParam();
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  chip->takeCalls();
  if (c.ingress) {
    completeGroup({"Ethernet1.10"});
    chip->takeCalls();
    chip->completeIngress(0, c.reason);
  } else {
    chip->groupOf({"Ethernet1.10"})->xact->failedIs(c.reason);
  }
  turn();
  EXPECT_EQ(chip->takeCalls(), c.asked);
  EXPECT_FALSE(status(kS1G1)->programmed());
  EXPECT_EQ(status(kS1G1)->failureReason(), c.reason);
  EXPECT_EQ(programmer->failureReason(chip.get(), "red", kS1G1), c.reason);
  EXPECT_EQ(programmer->routesParked(), 1u);

  // Retried by the programmer after its interval, not before.
  am.runUntil(am.now() + RouteProgrammer::kDefaultAsyncRetryInterval - 0.001);
  EXPECT_EQ(programmer->retries(), 0u);
  am.runUntil(am.now() + 0.001);
  EXPECT_EQ(programmer->retries(), 1u);
  Calls const retried = chip->takeCalls();
  ASSERT_FALSE(retried.empty());
  EXPECT_EQ(retried[0].rfind("allocGroup Ethernet1.10", 0), 0u) << retried[0];
  // The reason stays until the retry has programmed it.
  EXPECT_EQ(status(kS1G1)->failureReason(), c.reason);
  completeGroup({"Ethernet1.10"});
  chip->completeIngress(0);
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(status(kS1G1)->failureReason(), RouteProgrammer::kFailureNone);
  EXPECT_EQ(programmer->routesParked(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Transactions, AsyncXactFailureTest,
    ::testing::Values(XactFailureCase{"Group", false, 0x10000, Calls{"groupReason 65536", "free g0"}},
                      XactFailureCase{"Ingress", true, 0x20000, Calls{"ingressReason 131072", "free g0"}}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncRouteProgrammerTest, FailedRepointKeepsTheOldBindingAndItsGroup) {
  programmed(route(kS1G1, {"Ethernet1.10"}), 0);
  programmer->routeIs(route(kS1G1, {"Ethernet2.10"}));
  completeGroup({"Ethernet2.10"});
  chip->takeCalls();
  chip->completeIngress(0, 0x10000);
  turn();
  EXPECT_EQ(chip->takeCalls(), (Calls{"ingressReason 65536", "free g1"}));
  EXPECT_NE(chip->groupOf({"Ethernet1.10"}), nullptr);
  EXPECT_EQ(status(kS1G1)->failureReason(), 0x10000u);
  // Back to the outputs it still replicates through: nothing to program.
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  EXPECT_TRUE(chip->takeCalls().empty());
  EXPECT_TRUE(status(kS1G1)->programmed());
}

// The chip allocates nothing: the reason is the chip's failure bits.
struct RefusalCase {
  char const* name;
  bool noGroup;
  std::uint32_t reason;
};

std::ostream& operator<<(std::ostream& os, RefusalCase const& c) { return os << c.name; }

class AsyncRefusalTest : public AsyncRouteProgrammerTest, public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(AsyncRefusalTest, RefusedRouteIsParkedWithTheChipsBitsAndRetriedOnAKick) {
  chip->noGroup = GetParam().noGroup;
  chip->noRoute = !GetParam().noGroup;
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  EXPECT_EQ(status(kS1G1)->failureReason(), GetParam().reason);
  EXPECT_EQ(programmer->routesWaiting(), 0u);
  EXPECT_TRUE(chip->live.empty());  // a group the route could not use is given back
  chip->noGroup = chip->noRoute = false;
  chip->takeCalls();
  programmer->retryParked(chip.get());
  EXPECT_EQ(programmer->retries(), 1u);
  EXPECT_EQ(chip->takeCalls().size(), 2u);
  completeGroup({"Ethernet1.10"});
  chip->completeIngress(chip->nextHandle - 1);
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
}

INSTANTIATE_TEST_SUITE_P(Refusals, AsyncRefusalTest,
                         ::testing::Values(RefusalCase{"NoGroup", true, AsyncSwitchChip::kFailureNoMulticastId},
                                           RefusalCase{"NoRoute", false, AsyncSwitchChip::kFailureRouteRefused}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncRouteProgrammerTest, AttributeChangeReAddsTheRouteOnItsSharedGroup) {
  programmed(route(kS1G1, {"Ethernet1.10"}), 0);
  chip->takeCalls();
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}, 200));
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocGroup Ethernet1.10 vrf 7 -> g0", "delete h0",
                                      "allocRoute red (10.0.0.1, 239.1.1.1) vlan 200 rpa 0 -> h1",
                                      "bind h1 g0 after its group"}));
  chip->completeIngress(1);
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(programmer->groupsShared(), 0u);  // its own group, not another route's
}

TEST_F(AsyncRouteProgrammerTest, AttributeChangeWithNoGroupDeletesTheOldRouteAndParks) {
  programmed(route(kS1G1, {"Ethernet1.10"}), 0);
  chip->takeCalls();
  chip->noGroup = true;
  programmer->routeIs(route(kS1G1, {"Ethernet2.10"}, 200));
  // The route on its old VLAN is not wanted any more: it goes at once.
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocGroup Ethernet2.10 vrf 7 -> none", "delete h0", "free g0"}));
  EXPECT_EQ(status(kS1G1)->failureReason(), AsyncSwitchChip::kFailureNoMulticastId);
  EXPECT_FALSE(status(kS1G1)->programmed());
  chip->noGroup = false;
  programmer->retryParked(chip.get());
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocGroup Ethernet2.10 vrf 7 -> g1",
                                      "allocRoute red (10.0.0.1, 239.1.1.1) vlan 200 rpa 0 -> h1"}));
  completeGroup({"Ethernet2.10"});
  chip->completeIngress(1);
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
}

// The accepting VLAN changes while the route's group (or its binding) is
// still being written: the chip's route on the old VLAN is not wanted any
// more and goes at once, not when the transaction completes.
class AsyncAttributeChangeWhileWaitingTest : public AsyncRouteProgrammerTest,
                                             public ::testing::WithParamInterface<bool> {};

TEST_P(AsyncAttributeChangeWhileWaitingTest, DeletesTheOldRouteAtOnceAndReAddsIt) {
  bool const ingress = GetParam();
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}));
  if (ingress) completeGroup({"Ethernet1.10"});
  chip->takeCalls();
  programmer->routeIs(route(kS1G1, {"Ethernet1.10"}, 200));
  Calls expected{"allocGroup Ethernet1.10 vrf 7 -> g0", "delete h0",
                 "allocRoute red (10.0.0.1, 239.1.1.1) vlan 200 rpa 0 -> h1"};
  if (ingress) expected.push_back("bind h1 g0 after its group");
  EXPECT_EQ(chip->takeCalls(), expected);
  EXPECT_EQ(programmer->routesWaiting(), 1u);
  // The old attempt's completion is nobody's any more.
  if (ingress) {
    chip->ingress.at(0)->succeededIs();
    turn();
  } else {
    completeGroup({"Ethernet1.10"});
    EXPECT_EQ(chip->takeCalls(), (Calls{"bind h1 g0 after its group"}));
  }
  EXPECT_TRUE(chip->takeCalls().empty());
  chip->completeIngress(1);
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(programmer->routeHandle(chip.get(), "red", kS1G1), RouteHandle(1));
  EXPECT_EQ(programmer->routesWaiting(), 0u);
  EXPECT_EQ(programmer->groupsShared(), 0u);  // its own group, not another route's
}

INSTANTIATE_TEST_SUITE_P(Waiting, AsyncAttributeChangeWhileWaitingTest, ::testing::Values(false, true),
                         [](auto const& info) { return info.param ? "ForItsBinding" : "ForItsGroup"; });

TEST_F(AsyncRouteProgrammerTest, ChipAddedLaterProgramsEveryRouteAndLeavesWithThem) {
  programmed(route(kS1G1, {"Ethernet1.10"}), 0);
  auto other = Vex::make<FakeAsyncChip>("async1");
  programmer->switchChipIs(other, vrfIds);
  EXPECT_FALSE(status(kS1G1)->programmed());
  other->live.begin()->second->xact->succeededIs();
  turn();
  other->completeIngress(0);
  turn();
  EXPECT_TRUE(status(kS1G1)->programmed());
  programmer->switchChipDel(other);
  EXPECT_EQ(other->takeCalls().back(), "free g0");
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(programmer->switchChipSize(), 1u);
}

}  // namespace
}  // namespace MrouteLib
