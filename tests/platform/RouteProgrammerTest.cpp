// The route programmer against a recording chip: call order, OIF-set sharing
// and ownership, parking on full tables and the retries, route status.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/fib/hardware/Status.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "tests/doubles/RouteShapes.h"

namespace MrouteLib {
namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::Hardware::Status;

class FakeChip;

// A replication entry of the fake: tells its chip when it goes.
class FakeSet final : public MtableOifSet {
 public:
  FakeSet(FakeChip* chip, OifSetPtr oifSet, int id) : chip_(chip), oifSet_(std::move(oifSet)), id_(id) {}
  ~FakeSet() override;
  int id() const { return id_; }
  OifSetPtr const& oifSet() const { return oifSet_; }

 private:
  FakeChip* chip_;
  OifSetPtr oifSet_;
  int id_;
};

// Records every call as text, shares one entry per OifSet, allocates handles
// from 0 and fails when a table reaches its capacity. Like a real chip it
// drops the table's free flag on a full table and raises it again when a
// deletion makes room; unless told otherwise (dropsFlags, kickOnFailure).
class FakeChip final : public SwitchChip {
 public:
  struct Route {
    IpGenRouteKey key;
    Bridging::VlanIdOrNone vlan;
    bool bridge;
    Vex::Ptr<MtableOifSet> set;
  };

  explicit FakeChip(std::string name) : SwitchChip(std::move(name), 0) {}
  ~FakeChip() override { routes.clear(); }

  void doAllocateMtableOifSet(Vex::Ptr<OifSet const> oifSet) override {
    std::ostringstream os;
    os << "allocSet " << label(oifSet->portVlanSet());
    if (auto it = live.find(oifSet.get()); it != live.end() && sharesLiveSets) {
      oifSetResultIs(it->second);
      os << " -> s" << it->second->id();
    } else if (live.size() >= setCapacity) {
      oifSetResultIs(nullptr);
      os << " -> none";
      full(&SwitchChip::mtableFreeIs);
    } else {
      auto s = Vex::make<FakeSet>(this, oifSet, nextSet++);
      live[oifSet.get()] = s.get();
      oifSetResultIs(s);
      os << " -> s" << s->id();
    }
    calls.push_back(os.str());
  }
  void doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan, bool bridge, Vex::Ptr<MtableOifSet> set,
                       bool fastdrop, bool noRpf, std::uint16_t rpaId, L3::VrfName const& vrf) override {
    std::ostringstream os;
    os << "allocRoute " << vrf << ' ' << key << " vlan " << vlan << (bridge ? " bridge" : "")
       << (fastdrop ? " fastdrop" : "") << (noRpf ? " noRpf" : "") << " rpa " << rpaId << " set " << setName(set);
    if (count(bridge) >= (bridge ? boundaryCapacity : routeCapacity)) {
      handleResultIs(invalidRouteHandle);
      os << " -> none";
      full(bridge ? &SwitchChip::boundaryTcamFreeIs : &SwitchChip::mrouteTcamFreeIs);
    } else {
      RouteHandle const h(nextHandle++);
      routes[h.value()] = Route{key, vlan, bridge, nullptr};
      handleResultIs(h);
      os << " -> h" << h.value();
    }
    calls.push_back(os.str());
  }
  void doSetMtableOifSet(RouteHandle handle, Vex::Ptr<MtableOifSet> set) override {
    calls.push_back("bind h" + std::to_string(handle.value()) + ' ' + setName(set));
    routes.at(handle.value()).set = std::move(set);
  }
  void doDeleteRoute(RouteHandle handle) override {
    calls.push_back("delete h" + std::to_string(handle.value()));
    auto node = routes.extract(handle.value());
    bool const bridge = node.mapped().bridge;
    node = {};
    if (dropsFlags) (this->*(bridge ? &SwitchChip::boundaryTcamFreeIs : &SwitchChip::mrouteTcamFreeIs))(true);
  }
  void doCommitRouteBatch() override { calls.push_back("commit"); }

  void setGone(FakeSet* s) {
    live.erase(s->oifSet().get());
    ++setsFreed;
    if (dropsFlags) mtableFreeIs(true);
  }
  std::size_t count(bool bridge) const {
    std::size_t n = 0;
    for (auto const& [h, r] : routes) n += r.bridge == bridge;
    return n;
  }
  // The calls since the last look.
  std::vector<std::string> takeCalls() { return std::exchange(calls, {}); }

  static std::string label(PortVlanSet const& s) {
    std::ostringstream os;
    for (auto const& pv : s.portVlan()) os << (&pv == &s.portVlan().front() ? "" : ",") << pv;
    return os.str();
  }
  static std::string setName(Vex::Ptr<MtableOifSet> const& s) {
    if (!s) return "none";
    std::ostringstream os;
    os << 's' << static_cast<FakeSet const*>(s.get())->id();
    return os.str();
  }

  std::vector<std::string> calls;
  std::map<OifSet const*, FakeSet*> live;  // not owning: routes hold the sets
  std::map<std::uint32_t, Route> routes;
  std::size_t setCapacity = 100;
  std::size_t routeCapacity = 100;
  std::size_t boundaryCapacity = 100;
  int nextSet = 0;
  std::uint32_t nextHandle = 0;
  int setsFreed = 0;
  bool dropsFlags = true;
  bool kickOnFailure = false;
  // False: a live set is not handed out again (as when its entry was
  // rewritten in place for fast reroute); a new one is needed.
  bool sharesLiveSets = true;

 private:
  void full(void (SwitchChip::*flagIs)(bool)) {
    if (dropsFlags) (this->*flagIs)(false);
    if (kickOnFailure) mrouteReviewKickInc();
  }
};

FakeSet::~FakeSet() { chip_->setGone(this); }

constexpr auto key = &FalTest::RouteShapes::key;

IpGenRouteKey const kS1G1 = key("10.0.0.1/32", "239.1.1.1/32");
IpGenRouteKey const kS2G1 = key("10.0.0.2/32", "239.1.1.1/32");
IpGenRouteKey const kV6 = key("2001:db8::1/128", "ff3e::1/128");

DesiredRoute route(IpGenRouteKey k, std::vector<char const*> const& outputs, std::uint32_t vlan = 100) {
  return FalTest::RouteShapes::wanted("red", std::move(k), outputs, vlan);
}

class RouteProgrammerTest : public ::testing::Test {
 protected:
  using Calls = std::vector<std::string>;

  Vex::Ptr<Status> v4 = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Status> v6 = Vex::make<Status>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<OifSetRegistry> registry = Vex::make<OifSetRegistry>();
  Vex::Ptr<FakeChip> chip = Vex::make<FakeChip>("chip0");
  Vex::Ptr<FakeChip> chip1 = Vex::make<FakeChip>("chip1");
  // Last: it goes before the chips it drives.
  RouteProgrammer programmer{registry, v4, v6};

  void SetUp() override { programmer.switchChipIs(chip); }

  Vex::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus> status(IpGenRouteKey const& k, Vex::Ptr<Status> s = nullptr) {
    auto vrf = (s ? s : v4)->vrfStatus("red");
    return vrf ? vrf->route(k) : nullptr;
  }
};

TEST_F(RouteProgrammerTest, AddAllocatesSetThenRouteThenBindsAndRecordsStatus) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10", "Ethernet2.10"}));
  programmer.commit();
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocSet Ethernet1.10,Ethernet2.10 -> s0",
                                      "allocRoute red (10.0.0.1, 239.1.1.1) vlan 100 rpa 65535 set s0 -> h0",
                                      "bind h0 s0", "commit"}));
  auto st = status(kS1G1);
  ASSERT_TRUE(st);
  EXPECT_TRUE(st->programmed());
  EXPECT_EQ(st->failureReason(), RouteProgrammer::kFailureNone);
  EXPECT_EQ(st->acceptingIntfId(), Netcore::IntfId::vlan(100));
  EXPECT_EQ(programmer.routeHandle(chip.get(), "red", kS1G1), RouteHandle(0));
  EXPECT_EQ(programmer.routesProgrammed(), 1u);
}

TEST_F(RouteProgrammerTest, ProgrammerNeverHoldsTheChipsSetAfterBinding) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  ASSERT_EQ(chip->live.size(), 1u);
  FakeSet* set = chip->live.begin()->second;
  EXPECT_EQ(set->references(), 1u);  // the chip's route only
  EXPECT_EQ(chip->oifSetResult(), nullptr);
  programmer.routeDel("red", kS1G1);
  EXPECT_EQ(chip->setsFreed, 1);
  EXPECT_TRUE(chip->live.empty());
}

TEST_F(RouteProgrammerTest, ChangeOfOutputsRepointsRouteAndFreesOldSet) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  chip->takeCalls();
  programmer.routeIs(route(kS1G1, {"Ethernet3.10"}));
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocSet Ethernet3.10 -> s1", "bind h0 s1"}));
  EXPECT_EQ(chip->setsFreed, 1);
  EXPECT_EQ(registry->size(), 1u);
}

TEST_F(RouteProgrammerTest, ChangeOfAcceptingVlanKeepsSetAndReAddsRoute) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  chip->takeCalls();
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}, 200));
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocSet Ethernet1.10 -> s0", "delete h0",
                                      "allocRoute red (10.0.0.1, 239.1.1.1) vlan 200 rpa 65535 set s0 -> h1",
                                      "bind h1 s0"}));
  EXPECT_EQ(chip->setsFreed, 0);
  EXPECT_EQ(status(kS1G1)->acceptingIntfId(), Netcore::IntfId::vlan(200));
}

TEST_F(RouteProgrammerTest, UnchangedRouteMakesNoCallAndIntfChangeOnlyUpdatesStatus) {
  auto r = route(kS1G1, {"Ethernet1.10"});
  programmer.routeIs(r);
  chip->takeCalls();
  programmer.routeIs(r);
  r.acceptingIntfIdIs(Netcore::IntfId::ethernet(7));
  programmer.routeIs(r);
  EXPECT_TRUE(chip->takeCalls().empty());
  EXPECT_EQ(status(kS1G1)->acceptingIntfId(), Netcore::IntfId::ethernet(7));
}

TEST_F(RouteProgrammerTest, DeleteRemovesRouteFromChipAndItsStatus) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  chip->takeCalls();
  programmer.routeDel("red", kS1G1);
  programmer.routeDel("red", kS1G1);
  EXPECT_EQ(chip->takeCalls(), (Calls{"delete h0"}));
  EXPECT_EQ(status(kS1G1), nullptr);
  EXPECT_EQ(programmer.routeSize(), 0u);
  EXPECT_EQ(registry->size(), 0u);
}

TEST_F(RouteProgrammerTest, BoundaryEntryTakesNoOifSet) {
  auto r = route(kS1G1, {"Ethernet1.10"});
  r.bridgeIs(true);
  programmer.routeIs(r);
  EXPECT_EQ(chip->takeCalls(),
            (Calls{"allocRoute red (10.0.0.1, 239.1.1.1) vlan 100 bridge rpa 65535 set none -> h0"}));
  EXPECT_EQ(programmer.oifSet("red", kS1G1), nullptr);
  EXPECT_TRUE(status(kS1G1)->programmed());
}

TEST_F(RouteProgrammerTest, EqualOutputsShareOneOifSetAndOneChipEntry) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10", "Ethernet2.10"}));
  programmer.routeIs(route(kS2G1, {"Ethernet2.10", "Ethernet1.10"}));
  auto a = programmer.oifSet("red", kS1G1);
  EXPECT_TRUE(a);
  EXPECT_EQ(a, programmer.oifSet("red", kS2G1));
  EXPECT_EQ(chip->live.size(), 1u);
  programmer.routeIs(route(kS2G1, {"Ethernet3.10"}));
  EXPECT_NE(a, programmer.oifSet("red", kS2G1));
  EXPECT_EQ(chip->live.size(), 2u);
}

TEST_F(RouteProgrammerTest, RouteOfEachFamilyIsRecordedInItsOwnStatus) {
  programmer.routeIs(route(kV6, {"Ethernet1.10"}));
  EXPECT_EQ(status(kV6), nullptr);
  ASSERT_TRUE(status(kV6, v6));
  EXPECT_TRUE(status(kV6, v6)->programmed());
}

// Which table is full: the replication table (its route has outputs no other
// route has), the route table or the boundary table.
enum class Table { replication, route, boundary };

class RouteProgrammerFullTableTest : public RouteProgrammerTest, public ::testing::WithParamInterface<Table> {
 protected:
  DesiredRoute second() {
    auto r = route(kS2G1, {"Ethernet2.10"});
    r.bridgeIs(GetParam() == Table::boundary);
    return r;
  }
  void fill() {
    auto r = route(kS1G1, {"Ethernet1.10"});
    r.bridgeIs(GetParam() == Table::boundary);
    programmer.routeIs(r);
    (GetParam() == Table::replication ? chip->setCapacity
     : GetParam() == Table::route     ? chip->routeCapacity
                                      : chip->boundaryCapacity) = 1;
    programmer.routeIs(second());
  }
  std::uint32_t expectedReason(bool flagDropped) const {
    switch (GetParam()) {
      case Table::replication: return RouteProgrammer::kFailureReplicationTableFull;
      case Table::route: return flagDropped ? RouteProgrammer::kFailureRouteTableFull : RouteProgrammer::kFailureOther;
      case Table::boundary:
        return flagDropped ? RouteProgrammer::kFailureBoundaryTableFull : RouteProgrammer::kFailureOther;
    }
    return 0;
  }
  void makeRoom() {
    chip->setCapacity = chip->routeCapacity = chip->boundaryCapacity = 100;
  }
};

TEST_P(RouteProgrammerFullTableTest, ParkedRouteRetriedWhenFreeFlagReturns) {
  fill();
  EXPECT_FALSE(status(kS2G1)->programmed());
  EXPECT_EQ(status(kS2G1)->failureReason(), expectedReason(true));
  EXPECT_EQ(programmer.routesParked(), 1u);
  EXPECT_EQ(programmer.routesProgrammed(), 1u);
  chip->takeCalls();
  makeRoom();
  switch (GetParam()) {
    case Table::replication: chip->mtableFreeIs(true); break;
    case Table::route: chip->mrouteTcamFreeIs(true); break;
    case Table::boundary: chip->boundaryTcamFreeIs(true); break;
  }
  EXPECT_TRUE(status(kS2G1)->programmed());
  EXPECT_EQ(status(kS2G1)->failureReason(), RouteProgrammer::kFailureNone);
  EXPECT_EQ(programmer.routesParked(), 0u);
  EXPECT_EQ(programmer.retries(), 1u);
  EXPECT_EQ(chip->takeCalls().back(), "commit");
}

TEST_P(RouteProgrammerFullTableTest, ParkedRouteRetriedWhenReviewKickMoves) {
  chip->dropsFlags = false;
  fill();
  EXPECT_EQ(status(kS2G1)->failureReason(), expectedReason(false));
  chip->mrouteReviewKickInc();  // still full: tried once, parked again
  EXPECT_EQ(programmer.retries(), 1u);
  EXPECT_FALSE(status(kS2G1)->programmed());
  makeRoom();
  chip->mrouteReviewKickInc();
  EXPECT_EQ(programmer.retries(), 2u);
  EXPECT_TRUE(status(kS2G1)->programmed());
  EXPECT_FALSE(programmer.routeHandle(chip.get(), "red", kS2G1).isNull());
}

TEST_P(RouteProgrammerFullTableTest, RoomFreedInsideABatchIsRetriedAtCommit) {
  fill();
  chip->takeCalls();
  programmer.routeDel("red", kS1G1);  // makes room; the chip raises its flag while the programmer is busy
  EXPECT_EQ(chip->takeCalls(), (Calls{"delete h0"}));
  EXPECT_FALSE(status(kS2G1)->programmed());
  programmer.commit();
  EXPECT_TRUE(status(kS2G1)->programmed());
  EXPECT_EQ(programmer.retries(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Tables, RouteProgrammerFullTableTest,
                         ::testing::Values(Table::replication, Table::route, Table::boundary),
                         [](auto const& info) -> std::string {
                           switch (info.param) {
                             case Table::replication: return "Replication";
                             case Table::route: return "Route";
                             case Table::boundary: return "Boundary";
                           }
                           return "";
                         });

TEST_F(RouteProgrammerTest, NewOutputsWithoutRoomKeepOldSetUntilRoomReturns) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  chip->setCapacity = 1;
  chip->takeCalls();
  programmer.routeIs(route(kS1G1, {"Ethernet3.10"}));
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocSet Ethernet3.10 -> none"}));
  EXPECT_EQ(FakeChip::setName(chip->routes.at(0).set), "s0");
  EXPECT_EQ(status(kS1G1)->failureReason(), RouteProgrammer::kFailureReplicationTableFull);
  chip->setCapacity = 2;
  chip->mtableFreeIs(true);
  EXPECT_EQ(chip->takeCalls(), (Calls{"allocSet Ethernet3.10 -> s1", "bind h0 s1", "commit"}));
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(chip->setsFreed, 1);
}

TEST_F(RouteProgrammerTest, KickRaisedByEveryFailedRetryRunsBoundedPasses) {
  chip->dropsFlags = false;
  chip->routeCapacity = 0;
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  chip->kickOnFailure = true;
  chip->mrouteReviewKickInc();
  EXPECT_EQ(programmer.retries(), std::uint64_t{RouteProgrammer::kMaxRetryRounds} + 1);
  EXPECT_EQ(programmer.routesParked(), 1u);
}

TEST_F(RouteProgrammerTest, ProgrammedOnlyWhenEveryChipHoldsTheRoute) {
  chip1->routeCapacity = 0;
  programmer.switchChipIs(chip1);
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  EXPECT_FALSE(status(kS1G1)->programmed());
  EXPECT_EQ(status(kS1G1)->failureReason(), RouteProgrammer::kFailureRouteTableFull);
  EXPECT_EQ(programmer.failureReason(chip.get(), "red", kS1G1), RouteProgrammer::kFailureNone);
  EXPECT_EQ(programmer.routesProgrammed(), 0u);
  chip->takeCalls();
  programmer.switchChipDel(chip);
  EXPECT_EQ(chip->takeCalls(), (Calls{"delete h0", "commit"}));
  EXPECT_FALSE(status(kS1G1)->programmed());
  programmer.switchChipDel(chip1);
  EXPECT_FALSE(status(kS1G1)->programmed());  // no chip holds it
  EXPECT_EQ(programmer.routesParked(), 0u);
}

TEST_F(RouteProgrammerTest, AddedChipGetsEveryRouteAndACommit) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  programmer.routeIs(route(kS2G1, {"Ethernet1.10"}));
  programmer.switchChipIs(chip1);
  auto calls = chip1->takeCalls();
  ASSERT_EQ(calls.size(), 7u);
  EXPECT_EQ(calls.back(), "commit");
  EXPECT_EQ(chip1->routes.size(), 2u);
  EXPECT_EQ(chip1->live.size(), 1u);
  EXPECT_EQ(programmer.routesProgrammed(), 2u);
  EXPECT_FALSE(programmer.routeHandle(chip1.get(), "red", kS2G1).isNull());
}

TEST_F(RouteProgrammerTest, RouteParkedAwayFromTheOutputsItReplicatesThroughIsProgrammedWhenTheyComeBack) {
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  programmer.routeIs(route(kS2G1, {"Ethernet2.10"}));
  chip->setCapacity = 2;
  chip->sharesLiveSets = false;
  programmer.routeIs(route(kS1G1, {"Ethernet3.10"}));
  ASSERT_EQ(status(kS1G1)->failureReason(), RouteProgrammer::kFailureReplicationTableFull);
  chip->takeCalls();

  // Back to the outputs the chip still replicates through: nothing to ask it.
  programmer.routeIs(route(kS1G1, {"Ethernet1.10"}));
  EXPECT_TRUE(chip->takeCalls().empty());
  EXPECT_TRUE(status(kS1G1)->programmed());
  EXPECT_EQ(status(kS1G1)->failureReason(), RouteProgrammer::kFailureNone);
  EXPECT_EQ(programmer.routesParked(), 0u);
  EXPECT_EQ(FakeChip::setName(chip->routes.at(0).set), "s0");
}

// Routes in an order unlike their keys' (hash or otherwise).
std::vector<IpGenRouteKey> scrambledKeys(int n) {
  std::vector<IpGenRouteKey> keys;
  for (int i = 0; i < n; ++i) {
    int const g = (i * 7 + 3) % n;
    keys.push_back(key(("10.0." + std::to_string(g % 5) + ".1/32").c_str(), ("239.1." + std::to_string(g) + ".1/32").c_str()));
  }
  return keys;
}

// Which trigger gives room back: the free flag of the full table, or a kick.
class RouteProgrammerOrderTest : public RouteProgrammerTest, public ::testing::WithParamInterface<bool> {};

TEST_P(RouteProgrammerOrderTest, RoomThatComesBackGoesToParkedRoutesInTheOrderTheyWereWanted) {
  bool const kick = GetParam();
  chip->dropsFlags = !kick;
  chip->routeCapacity = 0;
  auto const keys = scrambledKeys(24);
  for (auto const& k : keys) programmer.routeIs(route(k, {"Ethernet1.10"}));
  ASSERT_EQ(programmer.routesParked(), keys.size());
  chip->routeCapacity = 5;
  chip->takeCalls();
  if (kick) {
    chip->mrouteReviewKickInc();
  } else {
    chip->mrouteTcamFreeIs(true);
  }
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(status(keys[i])->programmed(), i < 5) << keys[i];
  }
}

INSTANTIATE_TEST_SUITE_P(Triggers, RouteProgrammerOrderTest, ::testing::Bool(),
                         [](auto const& info) { return info.param ? "Kick" : "FreeFlag"; });

TEST_F(RouteProgrammerTest, AddedChipIsProgrammedInTheOrderRoutesWereWanted) {
  auto const keys = scrambledKeys(24);
  for (auto const& k : keys) programmer.routeIs(route(k, {"Ethernet1.10"}));
  chip1->routeCapacity = 3;
  programmer.switchChipIs(chip1);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(programmer.routeHandle(chip1.get(), "red", keys[i]).isNull(), i >= 3) << keys[i];
  }
}

TEST_F(RouteProgrammerTest, AddedChipTakesRoutesOfEveryFamilyAndVrfInTheOrderTheyWereWanted) {
  // The same addresses in two VRFs and in both families' forms: IPv4 keys
  // and the others are held apart, and the chip must see them as wanted.
  std::vector<std::pair<char const*, IpGenRouteKey>> const routes = {
      {"red", kV6},        {"red", kS1G1},        {"blue", kS1G1},
      {"blue", kV6},       {"red", key("0.0.0.0/0", "239.1.1.1/32")},
      {"red", IpGenRouteKey(Netcore::IpGenPrefix(), Netcore::IpGenPrefix("239.1.1.1"))},
      {"red", key("::/0", "ff3e::1/128")},  {"blue", kS2G1},
  };
  for (auto const& [vrf, k] : routes) {
    programmer.routeIs(FalTest::RouteShapes::wanted(vrf, k, {"Ethernet1.10"}, 100));
  }
  ASSERT_EQ(programmer.routeSize(), routes.size());
  chip1->routeCapacity = 5;
  programmer.switchChipIs(chip1);
  for (std::size_t i = 0; i < routes.size(); ++i) {
    auto const& [vrf, k] = routes[i];
    EXPECT_FALSE(programmer.routeHandle(chip.get(), vrf, k).isNull()) << vrf << ' ' << k;
    EXPECT_EQ(programmer.routeHandle(chip1.get(), vrf, k).isNull(), i >= 5) << vrf << ' ' << k;
  }
  EXPECT_EQ(programmer.routesParked(), routes.size() - 5);
}

// Which of three chips goes.
class RouteProgrammerChipDelTest : public RouteProgrammerTest, public ::testing::WithParamInterface<std::size_t> {};

TEST_P(RouteProgrammerChipDelTest, ChipThatGoesLeavesEveryOtherChipsRoutesAsTheyWere) {
  auto chip2 = Vex::make<FakeChip>("chip2");
  chip1->routeCapacity = 0;
  chip2->nextHandle = 50;
  programmer.switchChipIs(chip1);
  programmer.switchChipIs(chip2);
  for (auto const& k : {kS1G1, kV6}) programmer.routeIs(route(k, {"Ethernet1.10"}));
  std::vector<FakeChip*> const chips = {chip.get(), chip1.get(), chip2.get()};
  using View = std::pair<RouteHandle, std::uint32_t>;
  auto view = [&](FakeChip const* c, IpGenRouteKey const& k) {
    return View(programmer.routeHandle(c, "red", k), programmer.failureReason(c, "red", k));
  };
  ASSERT_EQ(view(chip2.get(), kV6), View(RouteHandle(51), RouteProgrammer::kFailureNone));
  ASSERT_EQ(view(chip1.get(), kV6), View(invalidRouteHandle, RouteProgrammer::kFailureRouteTableFull));
  std::map<std::pair<FakeChip const*, IpGenRouteKey>, View> before;
  for (auto const* c : chips) {
    for (auto const& k : {kS1G1, kV6}) before[{c, k}] = view(c, k);
  }
  programmer.switchChipDel(Vex::Ptr<SwitchChip>(chips[GetParam()]));
  for (auto const& [at, was] : before) {
    if (at.first == chips[GetParam()]) {
      EXPECT_TRUE(programmer.routeHandle(at.first, "red", at.second).isNull());
    } else {
      EXPECT_EQ(view(at.first, at.second), was) << at.first->name() << ' ' << at.second;
    }
  }
  EXPECT_EQ(programmer.routesParked(), GetParam() == 1 ? 0u : 2u);
  EXPECT_EQ(status(kS1G1)->programmed(), GetParam() == 1);
}

INSTANTIATE_TEST_SUITE_P(Slots, RouteProgrammerChipDelTest, ::testing::Values(0u, 1u, 2u));

}  // namespace
}  // namespace MrouteLib
