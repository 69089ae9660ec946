// The asynchronous switch's groups: sharing one record per OIF set,
// the zombie stage of a group that was in hardware, resurrection, fixed
// groups under preset ids, and the bookkeeping of a freed record.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/log/RingTrace.h"
#include "platform/vex/Assert.h"
#include "tests/doubles/AsyncMrouteSwitchRig.h"

namespace FalTest {
namespace {

using Calls = std::vector<std::string>;
using Rig = AsyncMrouteSwitchRig;
using Fal::Mroute::ZombieKey;
using MrouteLib::RouteHandle;
using Routing::Multicast::Fib::RouteKeyType;

constexpr std::uint32_t kInvalid = MrouteLib::AsyncSwitchChip::kInvalidMulticastId;

// Records what the switch tells its notifiees about resurrected FRR sets.
class FrrResurrections : public Fal::Mroute::AsyncMrouteSwitch::Notifiee {
 public:
  explicit FrrResurrections(Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch const> const& sw) { notifierIs(sw); }
  void onFrrOifSetResurrected(MrouteLib::OifSet const* oifSet) override { sets.push_back(oifSet); }
  std::vector<MrouteLib::OifSet const*> sets;
};

class AsyncGroupTest : public ::testing::Test {
 protected:
  AsyncGroupTest() { RingTrace::instance().clear(); }
  Calls deletes() const { return rig.helper->callsTo("doDeleteOifSet"); }

  Rig rig;
  Rig::IpGenRouteKey const k1 = Rig::key("10.0.0.1", "239.1.1.1");
  Rig::IpGenRouteKey const k2 = Rig::key("10.0.0.2", "239.1.1.1");
  MrouteLib::OifSetPtr const oA = rig.oifSet(Rig::outputs({"Ethernet1.100", "Ethernet2.100"}));
  MrouteLib::OifSetPtr const oB = rig.oifSet(Rig::outputs({"Ethernet3.100"}));
};

TEST_F(AsyncGroupTest, NewGroupIsRecordedAndItsTransactionReturned) {
  auto const set = rig.allocSet(oA);
  EXPECT_EQ(rig.helper->calls,
            (Calls{"needFixedOifSet(ipv4SG)", "doAllocateSharableMulticastGroup([Ethernet1.100 Ethernet2.100], null, false)",
                   "mcastIdIsValid(1)", "doScheduleVerify()", "doGetXactForOifSet(1)"}));
  ASSERT_TRUE(set);
  EXPECT_EQ(set->multicastId(), 1u);
  EXPECT_EQ(rig.lastXact, rig.helper->groupXact(1));
  EXPECT_EQ(rig.sw->oifSetXact(oA.get()), rig.lastXact);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), set.get());
  EXPECT_EQ(rig.sw->mcastIdToOifSet(1), oA);
  EXPECT_EQ(rig.sw->mrouteFailureReason(), 0u);
  EXPECT_FALSE(set->usedInHw());
  EXPECT_FALSE(set->isZombie());
  EXPECT_EQ(set->zombieLifetime(), 3.0);
  EXPECT_TRUE(rig.traced("mtableOifSet AsyncMtableOifSet(mcastId 1"));
}

TEST_F(AsyncGroupTest, SameSetAskedAgainWhileLiveSharesTheGroupAndItsTransaction) {
  auto const first = rig.allocSet(oA);
  auto const firstXact = rig.lastXact;
  rig.forget();
  auto const second = rig.allocSet(oA);
  EXPECT_EQ(second, first);
  EXPECT_EQ(rig.lastXact, firstXact);
  EXPECT_EQ(rig.helper->calls,
            (Calls{"needFixedOifSet(ipv4SG)", "mcastIdReusable(1)", "doScheduleVerify()", "doGetXactForOifSet(1)"}));
  EXPECT_TRUE(rig.traced("Found existing  mtableOifSet AsyncMtableOifSet(mcastId 1"));
  EXPECT_TRUE(rig.traced("Found an existing oif set"));
  EXPECT_TRUE(RingTrace::instance().contains("Foung an existing oif set"));
}

TEST_F(AsyncGroupTest, BindingPointsTheRouteAtTheGroupAfterItsTransactionAndReturnsTheIngressOne) {
  auto const set = rig.allocSet(oA);
  RouteHandle const h = rig.addRoute(k1);
  rig.forget();
  auto const ingress = rig.sw->doSetMtableOifSet(h, set, rig.lastXact);
  EXPECT_EQ(rig.helper->calls, (Calls{"doSetMtableOifSet(100, 1, group 1)", "doScheduleVerify()", "doGetXactForIngress(100)"}));
  EXPECT_EQ(ingress, rig.helper->ingressXact(h));
  EXPECT_TRUE(set->usedInHw());
  EXPECT_TRUE(rig.traced("rh 100 -> mt 1"));
}

TEST_F(AsyncGroupTest, SetDroppedBeforeAnyRouteUsedItIsFreedAtOnce) {
  rig.allocSet(oA);  // the result is dropped at once
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_TRUE(rig.traced("not used in hw, skipping delayed deletion"));
  EXPECT_TRUE(rig.traced("Freeing oifSet resources"));
  EXPECT_TRUE(rig.traced("Delete oifset "));
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
  EXPECT_EQ(rig.sw->mcastIdToOifSetSize(), 0u);
  EXPECT_EQ(rig.sw->oifSetXactSize(), 0u);
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  // Its destruction asked once more and found it freed.
  EXPECT_EQ(rig.capture->count("OifSet is already freed"), 1u);
}

TEST_F(AsyncGroupTest, GroupInHardwareOutlivesItsLastRouteAsAZombie) {
  RouteHandle const h = rig.program(k1, oA);
  auto const* set = rig.sw->inUseOifSet(oA.get());
  Vex::Seconds const t = rig.now();
  rig.forget();
  rig.unprogram(h);
  EXPECT_EQ(rig.helper->hardwareCalls(), Calls{"doDeleteRoute(100)"});
  EXPECT_EQ(rig.helper->callsTo("doScheduleVerify").size(), 2u);  // the route, then the zombie
  ASSERT_EQ(rig.sw->zombieOifSet().size(), 1u);
  EXPECT_EQ(rig.sw->zombieOifSet().first()->first, ZombieKey(1, t + 3.0));
  EXPECT_EQ(rig.sw->zombieOifSet().first()->second.get(), set);
  EXPECT_EQ(set->zombie(), ZombieKey(1, t + 3.0));
  EXPECT_FALSE(set->usedInHw());
  EXPECT_TRUE(rig.traced("Adding zombie AsyncMtableOifSet(mcastId 1"));
  EXPECT_TRUE(rig.traced(" with mcastId: 1"));
  EXPECT_EQ(rig.helper->groups.count(1), 1u);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), set);
}

TEST_F(AsyncGroupTest, ZombieAskedForAgainComesBackWithItsIdAndNoNewGroup) {
  rig.unprogram(rig.program(k1, oA));
  rig.forget();
  auto set = rig.allocSet(oA);
  EXPECT_EQ(rig.helper->calls,
            (Calls{"needFixedOifSet(ipv4SG)", "mcastIdReusable(1)", "doScheduleVerify()", "doGetXactForOifSet(1)"}));
  ASSERT_TRUE(set);
  EXPECT_EQ(set->multicastId(), 1u);
  EXPECT_TRUE(set->zombie().isEmpty());
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_TRUE(rig.traced("Resurrecting zombie mtableOifSet AsyncMtableOifSet(mcastId 1"));

  // Bound and left again, it waits anew from that moment.
  rig.am.advanceBy(2.0);
  RouteHandle const h = rig.addRoute(k2);
  rig.bind(h, set);
  set = nullptr;
  rig.unprogram(h);
  ASSERT_EQ(rig.sw->zombieOifSet().size(), 1u);
  EXPECT_EQ(rig.sw->zombieOifSet().first()->first, ZombieKey(1, rig.now() + 3.0));
  EXPECT_TRUE(deletes().empty());
}

TEST_F(AsyncGroupTest, ResurrectedButUnboundSetIsFreedAtOnceWhenDroppedAgain) {
  rig.unprogram(rig.program(k1, oA));
  rig.allocSet(oA);
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_EQ(rig.inUseId(oA), kInvalid);
}

TEST_F(AsyncGroupTest, FreeingAFreedRecordOnlyTracesItWasFreed) {
  auto const set = rig.allocSet(oA);
  rig.sw->handleFreeMtableOifSet(set);
  EXPECT_TRUE(set->deleted());
  rig.capture->clear();
  rig.sw->handleFreeMtableOifSet(set);
  EXPECT_TRUE(rig.traced("OifSet is already freed"));
  EXPECT_FALSE(rig.traced("Freeing oifSet resources"));
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
}

TEST_F(AsyncGroupTest, DirtyGroupIsNeverSharedAndItsFreeLeavesTheSuccessorShared) {
  RouteHandle const h = rig.program(k1, oA);
  rig.sw->inUseOifSet(oA.get())->dirtyIs(true);
  rig.forget();
  auto const successor = rig.allocSet(oA);
  EXPECT_EQ(rig.helper->callsTo("doAllocateSharableMulticastGroup").size(), 1u);
  ASSERT_TRUE(successor);
  EXPECT_EQ(successor->multicastId(), 2u);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), successor.get());

  // The predecessor leaves through the zombie stage; freeing it releases its
  // own group and id, and the successor keeps sharing.
  rig.unprogram(h);
  auto const predecessorKey = rig.sw->zombieOifSet().first()->first;
  rig.sw->zombieOifSetDel(predecessorKey);
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_FALSE(rig.traced("Delete oifset "));
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), successor.get());
  EXPECT_EQ(rig.sw->mcastIdToOifSet(1), nullptr);
  EXPECT_EQ(rig.sw->mcastIdToOifSet(2), oA);
}

TEST_F(AsyncGroupTest, GroupWhoseIdIsNotReusableIsNotSharedAndItsZombieDoesNotUnshareTheNewOne) {
  rig.unprogram(rig.program(k1, oA));
  rig.helper->notReusable = {1};
  auto const fresh = rig.allocSet(oA);
  ASSERT_TRUE(fresh);
  EXPECT_EQ(fresh->multicastId(), 2u);
  EXPECT_EQ(rig.sw->zombieOifSet().size(), 1u);  // the old group waits on
  rig.sw->zombieOifSetDel(rig.sw->zombieOifSet().first()->first);
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), fresh.get());
}

TEST_F(AsyncGroupTest, NoFreeMulticastIdFailsTheAllocationWithBitEightAndRecordsNothing) {
  rig.helper->noFreeMcastId = true;
  auto const set = rig.allocSet(oA);
  EXPECT_FALSE(set);
  EXPECT_EQ(rig.lastXact, nullptr);
  EXPECT_EQ(rig.sw->mrouteFailureReason(), 8u);
  EXPECT_EQ(rig.helper->calls,
            (Calls{"needFixedOifSet(ipv4SG)", "doAllocateSharableMulticastGroup([Ethernet1.100 Ethernet2.100], null, false)",
                   "mcastIdIsValid(4294967295)"}));
  EXPECT_TRUE(rig.traced("No free multicastId found"));
  EXPECT_TRUE(RingTrace::instance().contains(" No free multicastId found. acceptingVlan 10"));
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
  EXPECT_EQ(rig.sw->mcastIdToOifSetSize(), 0u);
}

TEST_F(AsyncGroupTest, GroupProgrammedAfterABlockingTransactionIsAskedForWithIt) {
  auto const blocking = Bolt::Xact::xactNew("blocker");
  rig.sw->doAllocateMtableOifSet(Rig::info(), oA, blocking, kInvalid, true);
  rig.sw->oifSetResultIs(nullptr);
  EXPECT_EQ(rig.helper->callsTo("doAllocateSharable"),
            Calls{"doAllocateSharableMulticastGroup([Ethernet1.100 Ethernet2.100], blocker, true)"});
}

// ---- fixed groups -------------------------------------------------------------

class AsyncFixedGroupTest : public AsyncGroupTest {
 protected:
  AsyncFixedGroupTest() { rig.helper->fixedTypes = {RouteKeyType::ipv4StarG}; }
  Rig::SetPtr fixedSet(MrouteLib::OifSetPtr const& o, std::uint32_t presetId) {
    return rig.allocSet(o, RouteKeyType::ipv4StarG, presetId);
  }
};

TEST_F(AsyncFixedGroupTest, FixedGroupTakesThePresetIdAndIsNeverShared) {
  auto const first = fixedSet(oA, 40);
  auto const second = fixedSet(oA, 41);
  EXPECT_EQ(rig.helper->callsTo("doAllocateFixed"),
            (Calls{"doAllocateFixedMulticastGroup([Ethernet1.100 Ethernet2.100], null, 40)",
                   "doAllocateFixedMulticastGroup([Ethernet1.100 Ethernet2.100], null, 41)"}));
  EXPECT_TRUE(rig.helper->callsTo("mcastIdReusable").empty());
  EXPECT_EQ(first->multicastId(), 40u);
  EXPECT_EQ(second->multicastId(), 41u);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), second.get());
}

// A route's outputs change and the programmer hands the same preset id
// down for the new ones (or for the same ones again): the route moves to
// the newer record, which now owns the group.
class AsyncFixedSharedIdTest : public AsyncFixedGroupTest, public ::testing::WithParamInterface<bool> {};

TEST_P(AsyncFixedSharedIdTest, GroupUnderASharedPresetIdOutlivesItsOlderRecordAndIsDeletedOnce) {
  MrouteLib::OifSetPtr const newerOutputs = GetParam() ? oA : oB;
  RouteHandle const h = rig.program(k1, oA, RouteKeyType::ipv4StarG, 40);
  auto const* olderSet = rig.sw->inUseOifSet(oA.get());
  auto newer = fixedSet(newerOutputs, 40);
  EXPECT_TRUE(olderSet->skipDelete());
  EXPECT_FALSE(newer->skipDelete());
  EXPECT_TRUE(rig.traced("skip delete mtable oifset AsyncMtableOifSet(mcastId 40"));
  EXPECT_EQ(rig.sw->mcastIdToOifSet(40), newerOutputs);

  rig.bind(h, newer);  // lets go of the older record, which waits as a zombie
  newer = nullptr;
  auto purge = [&] {
    while (auto const* first = rig.sw->zombieOifSet().first()) rig.sw->zombieOifSetDel(first->first);
  };
  purge();
  EXPECT_TRUE(deletes().empty());
  EXPECT_EQ(rig.helper->groups.count(40), 1u);
  EXPECT_EQ(rig.sw->mcastIdToOifSet(40), newerOutputs);
  EXPECT_EQ(rig.inUseId(newerOutputs), 40u);

  rig.unprogram(h);
  purge();
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(40)"});
  EXPECT_TRUE(rig.helper->violations.empty()) << rig.helper->violations.front();
  EXPECT_EQ(rig.sw->mcastIdToOifSetSize(), 0u);
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Outputs, AsyncFixedSharedIdTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "Same" : "Changed"; });

TEST_F(AsyncFixedGroupTest, KeptGroupOfASetThatIsNoLongerFixedStopsTheAgent) {
  auto const previous = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
  auto const older = fixedSet(oA, 40);
  auto const newer = fixedSet(oB, 40);
  ASSERT_TRUE(older->skipDelete());
  rig.helper->fixedTypes.clear();
  try {
    rig.sw->handleFreeMtableOifSet(older);
    ADD_FAILURE() << "freeing went on";
  } catch (Vex::FatalError const& e) {
    EXPECT_STREQ(e.what(), "mrouteHelper()->needFixedOifSet( oifSet->portVlanSet().type() )");
  }
  rig.helper->fixedTypes = {RouteKeyType::ipv4StarG};
  Vex::fatalHandlerIs(previous);
}

TEST_F(AsyncFixedGroupTest, PresetIdWhoseRecordIsGoneIsTracedAndTakenOver) {
  auto const stale = fixedSet(oA, 40);
  rig.sw->deletedIs(true);  // clean-up: frees keep the bookkeeping as it is
  rig.sw->handleFreeMtableOifSet(stale);
  rig.sw->deletedIs(false);
  EXPECT_EQ(rig.sw->mcastIdToOifSet(40), oA);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), stale.get());

  auto const fresh = fixedSet(oB, 40);
  // The stale record is still in use under its OIF set: it is the one told to keep the group.
  EXPECT_TRUE(stale->skipDelete());
  EXPECT_EQ(rig.sw->mcastIdToOifSet(40), oB);
}

// ---- clean-up, fast reroute -------------------------------------------------

TEST_F(AsyncGroupTest, DuringCleanUpAFreedGroupIsDeletedAtOnceAndTheBookkeepingLeftAlone) {
  auto const frr = rig.oifSet(Rig::frrOutputs(Rig::eth(5), {"Ethernet1.100"}, Rig::eth(1), {"Ethernet3.100"}));
  RouteHandle const h = rig.program(k1, frr);
  ASSERT_TRUE(rig.sw->frrMtableOifSet().contains(frr.get()));
  rig.sw->deletedIs(true);
  rig.forget();
  rig.unprogram(h);
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_TRUE(rig.traced("MrouteSwitch deletion, skipping delayed deletion"));
  EXPECT_FALSE(rig.traced("Adding zombie"));
  EXPECT_FALSE(rig.traced("Delete oifset "));
  EXPECT_TRUE(rig.sw->zombieOifSet().empty());
  EXPECT_TRUE(rig.sw->frrMtableOifSet().contains(frr.get()));
  EXPECT_EQ(rig.sw->mcastIdToOifSet(1), frr);
  // A destroyed record is never found again.
  EXPECT_EQ(rig.sw->inUseOifSet(frr.get()), nullptr);
}

TEST_F(AsyncGroupTest, FrrGroupIsWatchedUntilFreedAndRewatchedWhenResurrected) {
  FrrResurrections told(rig.sw);
  auto const frr = rig.oifSet(Rig::frrOutputs(Rig::eth(5), {"Ethernet1.100"}, Rig::eth(1), {"Ethernet3.100"}));
  rig.unprogram(rig.program(k1, frr));
  EXPECT_TRUE(rig.sw->frrMtableOifSet().contains(frr.get()));

  // An interface failure while it waits takes it off the watch.
  rig.sw->frrMtableOifSetDel(frr.get());
  rig.capture->clear();
  auto const back = rig.allocSet(frr);
  EXPECT_TRUE(rig.sw->frrMtableOifSet().contains(frr.get()));
  EXPECT_TRUE(rig.traced(" Adding Frr oifSetIndex: 1"));
  EXPECT_EQ(told.sets, std::vector<MrouteLib::OifSet const*>{frr.get()});

  back->usedInHwIs(false);
  Rig::SetPtr dropped = back;
  rig.sw->handleFreeMtableOifSet(dropped);
  EXPECT_TRUE(rig.sw->frrMtableOifSet().empty());
}

TEST_F(AsyncGroupTest, SwitchGoingAwayDeletesItsZombiesGroupsAndDetachesLiveRecords) {
  rig.unprogram(rig.program(k1, oA));
  RouteHandle const live = rig.program(k2, oB);
  auto const held = rig.bound[live];
  rig.forget();
  rig.sw = nullptr;
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
  EXPECT_EQ(held->mrouteSwitch(), nullptr);
  rig.bound.clear();
  EXPECT_EQ(deletes(), Calls{"doDeleteOifSet(1)"});
}

TEST_F(AsyncGroupTest, RecordThatOutlivesItsSwitchIsNotSharedByTheNextOne) {
  auto held = rig.allocSet(oA);
  ASSERT_TRUE(held);
  rig.sw = nullptr;
  rig.sw = Fal::Mroute::asyncMrouteSwitchFactory("chip2", rig.routeStatus, rig.helper);
  auto const fresh = rig.allocSet(oA);
  ASSERT_TRUE(fresh);
  EXPECT_NE(fresh, held);
  EXPECT_NE(fresh->multicastId(), held->multicastId());
  held = nullptr;  // the old switch's record goes, without a switch to tell
  // It took its place in the platform set with it: no later switch can find it there.
  EXPECT_EQ(oA->entryOwner(), nullptr);
  EXPECT_EQ(rig.allocSet(oA), fresh);
  EXPECT_EQ(rig.sw->inUseOifSet(oA.get()), fresh.get());
  EXPECT_EQ(rig.sw->inUseOifSetSize(), 1u);
}

}  // namespace
}  // namespace FalTest
