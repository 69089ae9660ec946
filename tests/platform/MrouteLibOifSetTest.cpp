// OifSet sharing through the registry and the per-chip switch base.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/mroutelib/MtableOifSet.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/mroutelib/SwitchChip.h"

namespace MrouteLib {
namespace {

using Bridging::VlanIdOrNone;

PortVlanSet outputs(std::vector<char const*> pvs, std::vector<char const*> frr = {}) {
  PortVlanSet s;
  for (auto t : pvs) s.portVlanIs(PortVlan(t));
  for (auto t : frr) s.portVlanFrrIs(PortVlan(t));
  return s;
}

TEST(MrouteLibOifSetRegistry, EqualContentSharesOneOifSet) {
  OifSetRegistry reg;
  auto a = reg.oifSetIs(outputs({"Ethernet1.10", "Ethernet2.10"}));
  auto b = reg.oifSetIs(outputs({"Ethernet2.10", "Ethernet1.10"}));
  EXPECT_EQ(a, b);
  EXPECT_EQ(reg.size(), 1u);
  EXPECT_EQ(reg.oifSet(outputs({"Ethernet1.10", "Ethernet2.10"})), a);
  EXPECT_EQ(a->owner(), &reg);
  EXPECT_EQ(a->hash(), a->portVlanSet().hash());
  EXPECT_EQ(a->portVlanSet().savedHash(), a->hash());
}

TEST(MrouteLibOifSetRegistry, ContentDifferingOnlyInFrrOrNatVlanGetsItsOwnOifSet) {
  OifSetRegistry reg;
  auto plain = reg.oifSetIs(outputs({"Ethernet1.10"}));
  auto withFrr = reg.oifSetIs(outputs({"Ethernet1.10"}, {"Ethernet3.10"}));
  auto nat = outputs({"Ethernet1.10"});
  nat.natVlanIs(VlanIdOrNone(20));
  auto withNat = reg.oifSetIs(nat);
  EXPECT_NE(plain, withFrr);
  EXPECT_NE(plain, withNat);
  EXPECT_NE(withFrr, withNat);
  EXPECT_EQ(reg.size(), 3u);
  EXPECT_EQ(withNat->portVlanSet(), nat);
}

TEST(MrouteLibOifSetRegistry, LookupWithoutCreateFindsNothingForNewContent) {
  OifSetRegistry reg;
  EXPECT_EQ(reg.oifSet(outputs({"Ethernet1.10"})), nullptr);
  EXPECT_EQ(reg.size(), 0u);
}

TEST(MrouteLibOifSetRegistry, ForgetsASetWhenItsLastReferenceGoes) {
  OifSetRegistry reg;
  auto content = outputs({"Ethernet1.10"});
  auto first = reg.oifSetIs(content);
  auto second = first;
  first->mcastIdHintIs(77);
  first = nullptr;
  EXPECT_EQ(reg.size(), 1u);
  EXPECT_EQ(reg.oifSet(content), second);
  second = nullptr;
  EXPECT_EQ(reg.size(), 0u);
  EXPECT_EQ(reg.oifSet(content), nullptr);
  // A fresh object, not the old one brought back (addresses may be reused,
  // so tell them apart by the state the old one carried).
  auto again = reg.oifSetIs(content);
  EXPECT_EQ(again->mcastIdHint(), OifSet::kInvalidMcastId);
  EXPECT_EQ(reg.size(), 1u);
}

TEST(MrouteLibOifSetRegistry, ManyDistinctSetsStayDistinctAndFindable) {
  OifSetRegistry reg;
  std::vector<OifSetPtr> held;
  for (std::uint32_t port = 1; port <= 64; ++port) {
    for (std::uint32_t vlan = 1; vlan <= 64; ++vlan) {
      PortVlanSet s;
      s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(port), VlanIdOrNone(vlan)));
      held.push_back(reg.oifSetIs(std::move(s)));
    }
  }
  ASSERT_EQ(reg.size(), held.size());
  for (auto const& s : held) EXPECT_EQ(reg.oifSet(s->portVlanSet()), s);
  held.resize(100);
  EXPECT_EQ(reg.size(), 100u);
}

TEST(MrouteLibOifSet, ReachesNoPortIsTheContentsAnswer) {
  OifSetRegistry reg;
  PortVlanSet cpuOnly;
  cpuOnly.toCpuIs(true);
  EXPECT_TRUE(reg.oifSetIs(cpuOnly)->reachesNoPort());
  EXPECT_TRUE(reg.oifSetIs(PortVlanSet())->reachesNoPort());
  EXPECT_FALSE(reg.oifSetIs(outputs({"Ethernet1.10"}))->reachesNoPort());
  EXPECT_FALSE(reg.oifSetIs(outputs({}, {"Ethernet3.10"}))->reachesNoPort());
}

// The entry slot: held by the first owner that stores into it, until that
// owner clears it with the entry it stored.
TEST(MrouteLibOifSet, EntrySlotBelongsToItsFirstOwnerUntilItClearsIt) {
  OifSetRegistry reg;
  auto set = reg.oifSetIs(outputs({"Ethernet1.10"}));
  int chipA = 0, chipB = 0, entry1 = 0, entry2 = 0;
  EXPECT_EQ(set->entryOwner(), nullptr);
  EXPECT_EQ(set->entry(&chipA), nullptr);

  EXPECT_TRUE(set->entryIs(&chipA, &entry1));
  EXPECT_EQ(set->entryOwner(), &chipA);
  EXPECT_EQ(set->entry(&chipA), &entry1);
  EXPECT_EQ(set->entry(&chipB), nullptr);
  EXPECT_FALSE(set->entryIs(&chipB, &entry2));
  EXPECT_EQ(set->entry(&chipA), &entry1);

  EXPECT_TRUE(set->entryIs(&chipA, &entry2));  // the owner replaces its entry
  set->entryDel(&chipA, &entry1);              // not the stored entry: kept
  set->entryDel(&chipB, &entry2);              // not the owner: kept
  EXPECT_EQ(set->entry(&chipA), &entry2);
  set->entryDel(&chipA, &entry2);
  EXPECT_EQ(set->entryOwner(), nullptr);

  EXPECT_TRUE(set->entryIs(&chipB, &entry1));
  EXPECT_TRUE(set->entryIs(&chipB, nullptr));  // storing nothing frees it too
  EXPECT_EQ(set->entryOwner(), nullptr);
  // Bookkeeping only: the set is still the registry's set for its content.
  EXPECT_EQ(reg.oifSet(outputs({"Ethernet1.10"})), set);
}

TEST(MrouteLibOifSetRegistry, SetsOutlivingTheirRegistryLoseTheirOwner) {
  auto reg = std::make_unique<OifSetRegistry>();
  auto s = reg->oifSetIs(outputs({"Ethernet1.10"}));
  reg.reset();
  EXPECT_EQ(s->owner(), nullptr);
  s = nullptr;  // releasing after the registry went must not touch it
}

TEST(MrouteLibOifSetRegistry, RefCountedRegistryCanBeHeldByPtr) {
  auto reg = Vex::make<OifSetRegistry>();
  auto s = reg->oifSetIs(outputs({"Ethernet1.10"}));
  auto* owner = s->owner();
  EXPECT_EQ(owner->oifSetIs(outputs({"Ethernet1.10"})), s);
}

// The smallest chip: the base's attributes are what these tests look at.
class MinimalSwitchChip : public SwitchChip {
 public:
  MinimalSwitchChip() : SwitchChip("chip0", 3) {}
  void doAllocateRoute(Routing::Multicast::Fib::IpGenRouteKey const&, VlanIdOrNone, bool, Vex::Ptr<MtableOifSet>, bool,
                       bool, std::uint16_t, L3::VrfName const&) override {
    handleResultIs(invalidRouteHandle);
  }
  void doSetMtableOifSet(RouteHandle, Vex::Ptr<MtableOifSet>) override {}
  void doDeleteRoute(RouteHandle) override {}
  void doAllocateMtableOifSet(Vex::Ptr<OifSet const>) override { oifSetResultIs(nullptr); }
  void doCommitRouteBatch() override {}
};

struct ChipReactor : SwitchChip::Notifiee {
  void onMtableFree() override { seen.push_back("mtableFree"); }
  void onMrouteTcamFree() override { seen.push_back("mrouteTcamFree"); }
  void onBoundaryTcamFree() override { seen.push_back("boundaryTcamFree"); }
  void onMrouteReviewKick() override { seen.push_back("mrouteReviewKick"); }
  std::vector<std::string> seen;
};

struct FreeFlag {
  char const* name;
  bool (SwitchChip::*get)() const;
  void (SwitchChip::*set)(bool);
};

class MrouteLibSwitchChipFreeFlag : public testing::TestWithParam<FreeFlag> {};

TEST_P(MrouteLibSwitchChipFreeFlag, StartsTrueAndNotifiesOnlyOnChange) {
  auto chip = Vex::make<MinimalSwitchChip>();
  ChipReactor r;
  r.notifierIs(chip);
  auto const& f = GetParam();
  EXPECT_TRUE(((*chip).*f.get)());
  ((*chip).*f.set)(true);
  ((*chip).*f.set)(false);
  ((*chip).*f.set)(false);
  EXPECT_FALSE(((*chip).*f.get)());
  ((*chip).*f.set)(true);
  EXPECT_TRUE(((*chip).*f.get)());
  EXPECT_EQ(r.seen, (std::vector<std::string>{f.name, f.name}));
}

INSTANTIATE_TEST_SUITE_P(AllFlags, MrouteLibSwitchChipFreeFlag,
                         testing::Values(FreeFlag{"mtableFree", &SwitchChip::mtableFree, &SwitchChip::mtableFreeIs},
                                         FreeFlag{"mrouteTcamFree", &SwitchChip::mrouteTcamFree,
                                                  &SwitchChip::mrouteTcamFreeIs},
                                         FreeFlag{"boundaryTcamFree", &SwitchChip::boundaryTcamFree,
                                                  &SwitchChip::boundaryTcamFreeIs}),
                         [](testing::TestParamInfo<FreeFlag> const& info) { return std::string(info.param.name); });

TEST(MrouteLibSwitchChip, ReviewKickNotifiesEachMove) {
  auto chip = Vex::make<MinimalSwitchChip>();
  ChipReactor r;
  r.notifierIs(chip);
  chip->mrouteReviewKickInc();
  chip->mrouteReviewKickIs(1);
  chip->mrouteReviewKickInc();
  EXPECT_EQ(chip->mrouteReviewKick(), 2u);
  EXPECT_EQ(r.seen, (std::vector<std::string>{"mrouteReviewKick", "mrouteReviewKick"}));
}

TEST(MrouteLibSwitchChip, ResultsStartEmptyAndHoldTheLastValue) {
  auto chip = Vex::make<MinimalSwitchChip>();
  EXPECT_EQ(chip->name(), "chip0");
  EXPECT_EQ(chip->chipId(), 3u);
  EXPECT_TRUE(chip->handleResult().isNull());
  EXPECT_EQ(chip->oifSetResult(), nullptr);
  auto set = Vex::make<MtableOifSet>();
  chip->oifSetResultIs(set);
  chip->handleResultIs(RouteHandle(5));
  EXPECT_EQ(chip->oifSetResult(), set);
  EXPECT_EQ(chip->handleResult(), RouteHandle(5));
  set = nullptr;
  EXPECT_EQ(chip->oifSetResult()->references(), 1u);  // the result keeps its set alive
}

}  // namespace
}  // namespace MrouteLib
