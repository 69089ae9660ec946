// The asynchronous face of the reference chip, through its hooks: groups and
// ingress entries change the tables only when their transactions complete,
// after the latency; injected failures, deletions that abort, what the chip
// records as wrong, and activity from traffic.
#include "sim/AsyncReferenceChip.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/vex/ActivityManager.h"
#include "sim/ReferenceChip.h"

namespace {

using FalSim::AsyncReferenceChip;
using FalSim::ReferenceChip;
using Bridging::VlanIdOrNone;
using MrouteLib::PortVlan;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;
using Op = AsyncReferenceChip::Operation;
using Drop = ReferenceChip::DropReason;
using Routing::Multicast::Fib::IpGenRouteKey;

constexpr std::uint16_t kVrf = 3;
constexpr Vex::Seconds kLatency = 0.02;

IpGenRouteKey sg(char const* s, char const* g) { return IpGenRouteKey(IpGenPrefix(s), IpGenPrefix(g)); }

bool mentions(std::vector<std::string> const& lines, std::string const& text) {
  for (auto const& l : lines)
    if (l.find(text) != std::string::npos) return true;
  return false;
}

class AsyncReferenceChipTest : public ::testing::Test {
 public:
  AsyncReferenceChipTest() {
    tables->handleMulticastRouting(true);
    chip->latencyIs(kLatency);
  }

  MrouteLib::OifSetPtr oifSet(std::initializer_list<char const*> outputs, bool toCpu = false) {
    MrouteLib::PortVlanSet set;
    for (auto const* t : outputs) set.portVlanIs(PortVlan(t));
    set.toCpuIs(toCpu);
    return registry->oifSetIs(set);
  }
  std::uint32_t group(std::initializer_list<char const*> outputs, bool excludeEmpty = false) {
    return chip->doAllocateSharableMulticastGroup({}, oifSet(outputs), nullptr, excludeEmpty);
  }
  RouteHandle route(IpGenRouteKey const& key, std::uint32_t vlan = 10) {
    return chip->doAllocateRoute(key, VlanIdOrNone(vlan), false, 0, kVrf, false);
  }
  ReferenceChip::ForwardResult send(char const* s = "10.0.0.1", char const* g = "239.1.1.1", std::uint32_t vlan = 10) {
    return tables->forwardWithReason(1, kVrf, IpGenAddr(s), IpGenAddr(g), VlanIdOrNone(vlan));
  }
  // Programs a route to a written group, both transactions completed.
  RouteHandle programmed(IpGenRouteKey const& key, std::uint32_t id) {
    RouteHandle const h = route(key);
    chip->doSetMtableOifSet(h, id, chip->doGetXactForOifSet(id));
    settle();
    return h;
  }
  void settle() { am.runUntil(am.now() + kLatency); }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(100.0)};
  Vex::Ptr<MrouteLib::OifSetRegistry> registry = Vex::make<MrouteLib::OifSetRegistry>();
  Vex::Ptr<ReferenceChip> tables = Vex::make<ReferenceChip>("tables", 2);
  Vex::Ptr<AsyncReferenceChip> chip = Vex::make<AsyncReferenceChip>("async1", *tables, 1);
};

TEST_F(AsyncReferenceChipTest, GroupAndBindingForwardOnlyOnceTheirTransactionsComplete) {
  std::uint32_t const id = group({"Ethernet1.10", "Ethernet2.10"});
  EXPECT_EQ(id, 1u);
  ASSERT_TRUE(chip->doGetXactForOifSet(id)->pending());
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"));
  am.runUntil(am.now() + kLatency - 0.001);
  EXPECT_TRUE(chip->doGetXactForOifSet(id)->pending());
  EXPECT_FALSE(tables->replicationEntry(1, id)->programmed);
  am.runUntil(am.now() + 0.001);
  EXPECT_TRUE(chip->doGetXactForOifSet(id)->succeeded());
  EXPECT_TRUE(tables->replicationEntry(1, id)->programmed);
  EXPECT_EQ(send().dropReason, Drop::noEntry);  // the route points nowhere yet

  chip->doSetMtableOifSet(h, id, chip->doGetXactForOifSet(id));
  auto const ingress = chip->doGetXactForIngress(h);
  ASSERT_TRUE(ingress->pending());
  EXPECT_EQ(send().dropReason, Drop::noEntry);
  settle();
  EXPECT_TRUE(ingress->succeeded());
  EXPECT_EQ(send().copies, (std::vector<PortVlan>{PortVlan("Ethernet1.10"), PortVlan("Ethernet2.10")}));
  EXPECT_EQ(tables->replicationEntries(0).size(), 0u);  // the other chip's table is untouched
  EXPECT_EQ(chip->statistics().xactsSucceeded, 2u);
  EXPECT_TRUE(tables->violations().empty());
}

TEST_F(AsyncReferenceChipTest, BindingWaitsForAPendingGroupTransactionThenItsOwnLatency) {
  std::uint32_t const id = group({"Ethernet1.10"});
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"));
  chip->doSetMtableOifSet(h, id, chip->doGetXactForOifSet(id));
  am.runUntil(am.now() + kLatency);
  EXPECT_TRUE(chip->doGetXactForIngress(h)->pending());
  am.runUntil(am.now() + kLatency);
  EXPECT_TRUE(chip->doGetXactForIngress(h)->succeeded());
  EXPECT_NEAR(chip->statistics().longestXact, 2 * kLatency, 1e-9);
}

TEST_F(AsyncReferenceChipTest, InPlaceUpdateChangesTheOutputsWhenItCompletes) {
  std::uint32_t const id = group({"Ethernet1.10"});
  settle();
  programmed(sg("10.0.0.1", "239.1.1.1"), id);
  chip->doUpdateMulticastGroupInPlace(oifSet({"Ethernet3.10"}), id);
  EXPECT_TRUE(chip->updatePending(id));
  EXPECT_EQ(send().copies, std::vector<PortVlan>{PortVlan("Ethernet1.10")});
  settle();
  EXPECT_FALSE(chip->updatePending(id));
  EXPECT_EQ(send().copies, std::vector<PortVlan>{PortVlan("Ethernet3.10")});
  EXPECT_EQ(tables->statistics(1).inPlaceRewrites, 1u);
}

// Each kind of transaction made to fail, once by "next", once by probability 1.
struct InjectedCase {
  char const* name;
  Op op;
  bool byProbability;
};

std::ostream& operator<<(std::ostream& os, InjectedCase const& c) { return os << c.name; }

class InjectedFailureTest : public AsyncReferenceChipTest, public ::testing::WithParamInterface<InjectedCase> {};

TEST_P(InjectedFailureTest, FailedTransactionChangesNothingAndGivesItsReason) {
  InjectedCase const& c = GetParam();
  std::uint32_t id = 0;
  if (c.op != Op::group) {
    id = group({"Ethernet1.10"});
    settle();
  }
  AsyncReferenceChip::Failures f;
  if (c.byProbability) {
    f.probability = 1.0;
  } else {
    f.next = 1;
  }
  chip->failuresIs(c.op, f);
  AsyncReferenceChip::XactPtr xact;
  RouteHandle h = route(sg("10.0.0.1", "239.1.1.1"));
  switch (c.op) {
    case Op::group:
      id = group({"Ethernet1.10"});
      xact = chip->doGetXactForOifSet(id);
      break;
    case Op::update:
      chip->doSetMtableOifSet(h, id, chip->doGetXactForOifSet(id));
      settle();
      chip->doUpdateMulticastGroupInPlace(oifSet({"Ethernet3.10"}), id);
      xact = chip->doGetXactForOifSet(id);
      break;
    case Op::ingress:
      chip->doSetMtableOifSet(h, id, chip->doGetXactForOifSet(id));
      xact = chip->doGetXactForIngress(h);
      break;
  }
  settle();
  ASSERT_TRUE(xact->failed());
  EXPECT_EQ(chip->doGetXactFailureReason(xact, FalHelper::MrouteXactType::oifSet),
            AsyncReferenceChip::kReasonHardwareError);
  EXPECT_EQ(chip->statistics().failedByReason.at(AsyncReferenceChip::kReasonHardwareError), 1u);
  switch (c.op) {
    case Op::group: EXPECT_FALSE(tables->replicationEntry(1, id)->programmed); break;
    case Op::update: EXPECT_EQ(send().copies, std::vector<PortVlan>{PortVlan("Ethernet1.10")}); break;
    case Op::ingress: EXPECT_EQ(tables->route(1, h)->oifSetIndex, 0u); break;
  }
  // "Next" wears off; a probability stays.
  chip->failuresIs(c.op, c.byProbability ? AsyncReferenceChip::Failures{} : chip->failures(c.op));
  std::uint32_t const other = group({"Ethernet5.10"});
  settle();
  EXPECT_TRUE(chip->doGetXactForOifSet(other)->succeeded());
}

INSTANTIATE_TEST_SUITE_P(Kinds, InjectedFailureTest,
                         ::testing::Values(InjectedCase{"GroupNext", Op::group, false},
                                           InjectedCase{"UpdateNext", Op::update, false},
                                           InjectedCase{"IngressByProbability", Op::ingress, true}),
                         [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncReferenceChipTest, BindingToAGroupWhoseWriteFailedFails) {
  chip->failuresIs(Op::group, {0, 1});
  std::uint32_t const id = group({"Ethernet1.10"});
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"));
  chip->doSetMtableOifSet(h, id, chip->doGetXactForOifSet(id));
  am.runUntil(am.now() + 2 * kLatency);
  EXPECT_EQ(chip->doGetXactForIngress(h)->reason(), AsyncReferenceChip::kReasonGroupNotProgrammed);
}

TEST_F(AsyncReferenceChipTest, ProbabilityFailuresFollowTheSeed) {
  auto pattern = [this](std::uint64_t seed) {
    auto other = Vex::make<AsyncReferenceChip>("async0", *tables, 0);
    other->seedIs(seed);
    other->failuresIs(Op::group, {0.5, 0});
    std::vector<std::uint32_t> ids;
    for (int i = 0; i < 64; ++i) ids.push_back(other->doAllocateSharableMulticastGroup({}, oifSet({"Ethernet1.10"}), nullptr, false));
    settle();
    std::string out;
    for (auto id : ids) out += other->doGetXactForOifSet(id)->failed() ? 'F' : '.';
    for (auto id : ids) other->doDeleteOifSet(id);
    return out;
  };
  std::string const first = pattern(7);
  EXPECT_EQ(pattern(7), first);
  EXPECT_NE(pattern(8), first);
  auto const failed = std::count(first.begin(), first.end(), 'F');
  EXPECT_GT(failed, 16);
  EXPECT_LT(failed, 48);
}

TEST_F(AsyncReferenceChipTest, DeletionsAbortWhatIsPendingOnThem) {
  std::uint32_t const id = group({"Ethernet1.10"});
  auto const groupXact = chip->doGetXactForOifSet(id);
  chip->doDeleteOifSet(id);
  EXPECT_EQ(groupXact->reason(), AsyncReferenceChip::kReasonAborted);
  EXPECT_FALSE(tables->replicationEntry(1, id));

  std::uint32_t const next = group({"Ethernet1.10"});
  settle();
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"));
  chip->doSetMtableOifSet(h, next, chip->doGetXactForOifSet(next));
  auto const ingress = chip->doGetXactForIngress(h);
  chip->doDeleteRoute(h);
  EXPECT_EQ(ingress->reason(), AsyncReferenceChip::kReasonAborted);
  EXPECT_FALSE(tables->route(1, h));
  EXPECT_EQ(chip->pendingTransactions(), 0u);
  EXPECT_TRUE(tables->violations().empty());
}

// What a library that lost track of its groups would do.
struct MisuseCase {
  char const* name;
  std::function<void(AsyncReferenceChipTest&, std::uint32_t id, RouteHandle h)> act;
  char const* violation;
};

std::ostream& operator<<(std::ostream& os, MisuseCase const& c) { return os << c.name; }

class AsyncMisuseTest : public AsyncReferenceChipTest, public ::testing::WithParamInterface<MisuseCase> {};

TEST_P(AsyncMisuseTest, ChipRecordsIt) {
  std::uint32_t const id = group({"Ethernet1.10"});
  settle();
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"));
  GetParam().act(*this, id, h);
  EXPECT_TRUE(mentions(tables->violations(), GetParam().violation)) << GetParam().violation;
}

INSTANTIATE_TEST_SUITE_P(
    Misuses, AsyncMisuseTest,
    ::testing::Values(
        MisuseCase{"DeleteWhileBound",
                   [](AsyncReferenceChipTest& t, std::uint32_t id, RouteHandle h) {
                     t.chip->doSetMtableOifSet(h, id, nullptr);
                     t.settle();
                     t.chip->doDeleteOifSet(id);
                   },
                   "chip 1: doDeleteOifSet: oifSetIndex 1 freed while 1 route(s) still point at it"},
        MisuseCase{"DeleteWhileBeingBound",
                   [](AsyncReferenceChipTest& t, std::uint32_t id, RouteHandle h) {
                     t.chip->doSetMtableOifSet(h, id, nullptr);
                     t.chip->doDeleteOifSet(id);
                   },
                   "chip 1: doDeleteOifSet: group 1 deleted while route handle 1 is being bound to it"},
        MisuseCase{"DeleteTwice",
                   [](AsyncReferenceChipTest& t, std::uint32_t id, RouteHandle) {
                     t.chip->doDeleteOifSet(id);
                     t.chip->doDeleteOifSet(id);
                   },
                   "chip 1: doDeleteOifSet: double free of oifSetIndex 1"},
        MisuseCase{"BindToUnallocatedGroup",
                   [](AsyncReferenceChipTest& t, std::uint32_t, RouteHandle h) {
                     t.chip->doSetMtableOifSet(h, 9, nullptr);
                   },
                   "chip 1: doSetMtableOifSet: route handle 1 bound to group 9, which is not allocated"},
        MisuseCase{"UpdateUnallocatedGroup",
                   [](AsyncReferenceChipTest& t, std::uint32_t, RouteHandle) {
                     t.chip->doUpdateMulticastGroupInPlace(t.oifSet({"Ethernet2.10"}), 9);
                   },
                   "chip 1: doUpdateMulticastGroupInPlace: update of group 9, which is not allocated"},
        MisuseCase{"DeleteUnknownRoute",
                   [](AsyncReferenceChipTest& t, std::uint32_t, RouteHandle h) {
                     t.chip->doDeleteRoute(h);
                     t.chip->doDeleteRoute(h);
                   },
                   "chip 1: doDeleteRoute: unknown route handle 1"}),
    [](auto const& info) { return std::string(info.param.name); });

TEST_F(AsyncReferenceChipTest, OutputsReachingNoPortShareTheEntryOutsideTheTable) {
  std::uint32_t const a = group({});
  std::uint32_t const b = group({}, true);
  EXPECT_EQ(a, ReferenceChip::kNowhereIndex);
  EXPECT_EQ(b, 1u);  // an FRR route's group must not be the shared one
  EXPECT_EQ(group({}, false), a);
  tables->failNextAllocationsIs(1, ReferenceChip::Table::replication, 1);
  EXPECT_EQ(group({}), a);  // takes no capacity, escapes injected failures
  settle();
  EXPECT_TRUE(chip->doGetXactForOifSet(a)->succeeded());
  chip->doDeleteOifSet(a);
  EXPECT_EQ(group({}), a);
  EXPECT_EQ(tables->replicationEntries(1).size(), 1u);
  EXPECT_TRUE(tables->violations().empty());
}

TEST_F(AsyncReferenceChipTest, FullTableAnswersTheInvalidId) {
  tables->capacityIs(1, {16, 16, 1});
  EXPECT_EQ(group({"Ethernet1.10"}), 1u);
  EXPECT_EQ(group({"Ethernet2.10"}), FalHelper::AsyncMrouteHelper::kInvalidMcastId);
  EXPECT_FALSE(chip->mcastIdIsValid(group({"Ethernet2.10"})));
}

TEST_F(AsyncReferenceChipTest, FixedGroupTakesThePresetIdOrTakesOverTheLiveOne) {
  chip->fixedGroupTypeIs(Routing::Multicast::Fib::RouteKeyType::ipv4StarG, true);
  EXPECT_TRUE(chip->needFixedOifSet(Routing::Multicast::Fib::RouteKeyType::ipv4StarG));
  EXPECT_FALSE(chip->needFixedOifSet(Routing::Multicast::Fib::RouteKeyType::ipv4SG));
  EXPECT_EQ(chip->doAllocateFixedMulticastGroup(oifSet({"Ethernet1.10"}), nullptr, 5), 5u);
  EXPECT_EQ(group({"Ethernet2.10"}), 1u);  // the ids skipped stay free
  settle();
  EXPECT_EQ(chip->doAllocateFixedMulticastGroup(oifSet({"Ethernet3.10"}), nullptr, 5), 5u);
  settle();
  EXPECT_EQ(tables->replicationEntry(1, 5)->portVlanSet.portVlan()[0], PortVlan("Ethernet3.10"));
  EXPECT_EQ(chip->doAllocateFixedMulticastGroup(oifSet({"Ethernet4.10"}), nullptr,
                                                FalHelper::AsyncMrouteHelper::kInvalidMcastId),
            2u);
}

TEST_F(AsyncReferenceChipTest, LastAccessFollowsTrafficAndCountsNewerActivity) {
  std::uint32_t const id = group({"Ethernet1.10"});
  settle();
  RouteHandle const h = programmed(sg("10.0.0.1", "239.1.1.1"), id);
  EXPECT_EQ(chip->routeLastAccessedTime(h), 0.0);
  am.advanceBy(1.0);
  Vex::Seconds const sent = am.now();
  send();
  EXPECT_EQ(chip->routeLastAccessedTime(h), sent);
  EXPECT_EQ(chip->routeLastAccessedTime(h), sent);
  EXPECT_EQ(send("10.0.0.1", "239.1.1.1", 11).dropReason, Drop::rpfFail);  // not the route's traffic
  EXPECT_EQ(chip->routeLastAccessedTime(h), sent);
  EXPECT_EQ(chip->statistics().activityReads, 4u);
  EXPECT_EQ(chip->statistics().newerActivity, 1u);
}

TEST_F(AsyncReferenceChipTest, HardwareChangesAwaitAVerify) {
  std::uint32_t const id = group({"Ethernet1.10"});
  RouteHandle const h = route(sg("10.0.0.1", "239.1.1.1"));
  EXPECT_EQ(chip->unverifiedChanges(), 2u);
  chip->doScheduleVerify();
  EXPECT_EQ(chip->unverifiedChanges(), 0u);
  chip->doSetMtableOifSet(h, id, nullptr);
  chip->doDeleteRoute(h);
  chip->doDeleteOifSet(id);
  EXPECT_EQ(chip->unverifiedChanges(), 3u);
}

TEST_F(AsyncReferenceChipTest, CutChipReachesNoHardwareAndAbandonsItsTransactions) {
  std::uint32_t const id = group({"Ethernet1.10"});
  auto const xact = chip->doGetXactForOifSet(id);
  chip->cut();
  settle();
  EXPECT_TRUE(xact->pending());
  EXPECT_EQ(group({"Ethernet2.10"}), FalHelper::AsyncMrouteHelper::kInvalidMcastId);
  chip->doDeleteOifSet(id);
  EXPECT_TRUE(tables->replicationEntry(1, id));
  EXPECT_TRUE(route(sg("10.0.0.1", "239.1.1.1")).isNull());
}

}  // namespace
