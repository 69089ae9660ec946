// The reference chip's route table and key index as the hook faces use
// them: several routes of one key (one per accepting VLAN) found and
// forwarded whichever of them comes and goes, and the table walked in handle
// order across its pages while routes come and go. Also the runner's book
// of wanted routes.
#include "sim/ReferenceChipTables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/vex/Assert.h"
#include "sim/WantedRoutes.h"

namespace {

using Bridging::VlanIdOrNone;
using FalSim::ReferenceChipTables;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;
using Netcore::IpGenPrefix;
using Routing::Multicast::Fib::IpGenRouteKey;
using Drop = ReferenceChipTables::DropReason;

constexpr std::uint16_t kVrf = 3;

IpGenRouteKey sg(std::uint32_t group) {
  return IpGenRouteKey(IpGenPrefix("10.0.0.1/32"), IpGenPrefix(IpGenAddr::v4(0xEF000000U + group), 32));
}

class ReferenceChipTablesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    previous_ = Vex::fatalHandlerIs(Vex::throwingFatalHandler);
    tables_.multicastRoutingEnabledIs(true);
    MrouteLib::PortVlanSet outputs;
    outputs.portVlanIs(MrouteLib::PortVlan("Ethernet1.100"));
    entry_ = tables_.entryAllocate(0, outputs);
  }
  void TearDown() override { Vex::fatalHandlerIs(previous_); }

  RouteHandle add(IpGenRouteKey const& key, std::uint32_t vlan) {
    ReferenceChipTables::RouteEntry e;
    e.vrfId = kVrf;
    e.key = key;
    e.acceptingVlan = VlanIdOrNone(vlan);
    e.oifSetIndex = entry_;
    return tables_.routeAllocate(0, std::move(e), false, "test");
  }
  Drop sent(IpGenRouteKey const& key, std::uint32_t vlan) {
    return tables_.forwardWithReason(0, kVrf, key.source().address(), key.group().address(), VlanIdOrNone(vlan))
        .dropReason;
  }

  ReferenceChipTables tables_{1, ReferenceChipTables::Capacity{4096, 16, 16}};
  std::uint32_t entry_ = 0;
  Vex::FatalHandler previous_;
};

// Which of the three routes of one key (VLANs 10, 20, 30, added in that
// order) goes.
class OneKeyManyVlansTest : public ReferenceChipTablesTest, public ::testing::WithParamInterface<int> {};

TEST_P(OneKeyManyVlansTest, TheOthersStayFoundAndForwardWhicheverGoes) {
  IpGenRouteKey const key = sg(1);
  std::vector<std::uint32_t> const vlans = {10, 20, 30};
  std::vector<RouteHandle> handles;
  for (std::uint32_t v : vlans) handles.push_back(add(key, v));
  int const gone = GetParam();
  tables_.routeDel(0, handles[gone]);

  for (int i = 0; i < 3; ++i) {
    auto const* r = tables_.route(0, kVrf, key, VlanIdOrNone(vlans[i]));
    if (i == gone) {
      EXPECT_EQ(r, nullptr);
      EXPECT_EQ(sent(key, vlans[i]), Drop::rpfFail);
    } else {
      ASSERT_NE(r, nullptr) << "VLAN " << vlans[i];
      EXPECT_EQ(r->handle, handles[i]);
      EXPECT_EQ(sent(key, vlans[i]), Drop::none);
    }
  }
  EXPECT_TRUE(tables_.violations().empty());

  // Back again: found under its new handle, and no duplicate is reported.
  RouteHandle const again = add(key, vlans[gone]);
  auto const* r = tables_.route(0, kVrf, key, VlanIdOrNone(vlans[gone]));
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->handle, again);
  EXPECT_EQ(sent(key, vlans[gone]), Drop::none);
  EXPECT_TRUE(tables_.violations().empty());

  // The same key and VLAN a second time is the library's bug, and said so.
  add(key, vlans[gone]);
  ASSERT_EQ(tables_.violations().size(), 1u);
  EXPECT_NE(tables_.violations()[0].find("is already programmed under handle " + std::to_string(again.value())),
            std::string::npos);

  // Every route of the key gone: nothing is found, traffic finds no route.
  std::vector<RouteHandle> all;
  for (auto const& [h, route] : tables_.routes(0)) all.push_back(h);
  for (RouteHandle h : all) tables_.routeDel(0, h);
  EXPECT_EQ(tables_.route(0, kVrf, key, VlanIdOrNone(vlans[0])), nullptr);
  EXPECT_EQ(sent(key, 10), Drop::noRoute);
}

INSTANTIATE_TEST_SUITE_P(Position, OneKeyManyVlansTest, ::testing::Values(0, 1, 2),
                         [](auto const& info) { return std::string(info.param == 0 ? "First" : info.param == 1 ? "Middle" : "Last"); });

TEST_F(ReferenceChipTablesTest, RouteTableWalksInHandleOrderWhileRoutesComeAndGoAcrossPages) {
  std::vector<RouteHandle> handles;
  for (std::uint32_t g = 0; g < 700; ++g) handles.push_back(add(sg(g), 10));
  // A whole page's worth in the middle goes, and every third of the rest.
  std::vector<RouteHandle> kept;
  for (std::size_t i = 0; i < handles.size(); ++i) {
    bool const gone = (i >= 256 && i < 600) || i % 3 == 0;
    if (gone) {
      tables_.routeDel(0, handles[i]);
    } else {
      kept.push_back(handles[i]);
    }
  }
  for (std::uint32_t g = 700; g < 720; ++g) kept.push_back(add(sg(g), 10));

  std::vector<RouteHandle> walked;
  for (auto const& [h, r] : tables_.routes(0)) {
    EXPECT_EQ(r.handle, h);
    walked.push_back(h);
  }
  EXPECT_TRUE(std::is_sorted(walked.begin(), walked.end()));
  std::vector<RouteHandle> expected = kept;
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(walked, expected);
  EXPECT_EQ(tables_.routes(0).size(), kept.size());
  EXPECT_EQ(tables_.statistics(0).routes, kept.size());
  EXPECT_EQ(tables_.route(0, handles[300]), nullptr);
  EXPECT_EQ(tables_.route(0, kVrf, sg(300), VlanIdOrNone(10)), nullptr);
  ASSERT_NE(tables_.route(0, handles[1]), nullptr);
  EXPECT_EQ(tables_.route(0, handles[1])->key, sg(1));
  EXPECT_EQ(sent(sg(701), 10), Drop::none);
}

// Enough keys for the index to grow several times and its slots to collide
// in runs; removals in a scrambled order move later slots of a run back, and
// every key still held must be found by key afterwards, every removed one not.
TEST_F(ReferenceChipTablesTest, KeyIndexFindsEveryHeldKeyThroughGrowthAndScrambledRemovals) {
  constexpr std::uint32_t kRoutes = 3500;
  std::vector<RouteHandle> handles;
  for (std::uint32_t g = 0; g < kRoutes; ++g) handles.push_back(add(sg(g), 10));
  std::vector<bool> held(kRoutes, true);
  auto expectIndexMatchesHeld = [&](char const* when) {
    for (std::uint32_t g = 0; g < kRoutes; ++g) {
      auto const* r = tables_.route(0, kVrf, sg(g), VlanIdOrNone(10));
      ASSERT_EQ(r != nullptr, held[g]) << when << ": group " << g;
      if (r) {
        EXPECT_EQ(r->handle, handles[g]) << when << ": group " << g;
      }
    }
  };
  expectIndexMatchesHeld("all added");
  // A stride prime to the count visits every route once, far from key order.
  for (std::uint32_t i = 0, g = 0; i < 2 * kRoutes / 3; ++i, g = (g + 1237) % kRoutes) {
    tables_.routeDel(0, handles[g]);
    held[g] = false;
  }
  expectIndexMatchesHeld("two thirds removed");
  for (std::uint32_t g = 0; g < kRoutes; g += 2) {
    if (held[g]) continue;
    handles[g] = add(sg(g), 10);
    held[g] = true;
  }
  expectIndexMatchesHeld("half of them back");
  EXPECT_EQ(sent(sg(kRoutes - 2), 10), Drop::none);
}

MrouteLib::DesiredRoute wanted(char const* vrf, std::uint32_t group, std::uint32_t vlan) {
  MrouteLib::DesiredRoute r(L3::VrfName(vrf), sg(group));
  r.acceptingVlanIs(VlanIdOrNone(vlan));
  return r;
}

TEST(WantedRoutesTest, HoldsRoutesInVrfThenKeyOrderAndKeepsCopiesOfPassingOnes) {
  std::vector<MrouteLib::DesiredRoute> const kept = {wanted("red", 2, 10), wanted("blue", 9, 10), wanted("red", 1, 10)};
  FalSim::WantedRoutes book;
  for (auto const& r : kept) book.kept(r);
  {
    MrouteLib::DesiredRoute const passing = wanted("blue", 1, 20);
    book.copied(passing);
  }
  std::vector<std::pair<std::string, IpGenRouteKey>> order;
  for (auto const& r : book) order.emplace_back(r.vrfName().stringValue(), r.key());
  std::vector<std::pair<std::string, IpGenRouteKey>> const expected = {
      {"blue", sg(1)}, {"blue", sg(9)}, {"red", sg(1)}, {"red", sg(2)}};
  EXPECT_EQ(order, expected);
  ASSERT_NE(book.find(L3::VrfName("blue"), sg(1)), nullptr);
  EXPECT_EQ(book.find(L3::VrfName("blue"), sg(1))->acceptingVlan(), VlanIdOrNone(20));
  EXPECT_EQ(book.find(L3::VrfName("red"), sg(2)), &kept[0]);

  // A new description of a wanted route replaces the old, wherever each lives.
  book.copied(wanted("red", 2, 30));
  EXPECT_EQ(book.size(), 4u);
  EXPECT_EQ(book.find(L3::VrfName("red"), sg(2))->acceptingVlan(), VlanIdOrNone(30));
  book.kept(kept[0]);
  EXPECT_EQ(book.find(L3::VrfName("red"), sg(2)), &kept[0]);
  EXPECT_EQ(book.size(), 4u);

  book.erase(L3::VrfName("red"), sg(2));
  book.erase(L3::VrfName("red"), sg(7));  // not wanted: nothing happens
  EXPECT_FALSE(book.contains(L3::VrfName("red"), sg(2)));
  EXPECT_TRUE(book.contains(L3::VrfName("red"), sg(1)));
  EXPECT_EQ(book.size(), 3u);
}

}  // namespace
