#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/vex/Assert.h"
#include "recovery/RecoverySm.h"
#include "tests/recovery/TraceCapture.h"

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Routing::Multicast::Fib::VrfEnabledStatus;
using Routing::Multicast::Fib::Hardware::Status;
using Netcore::IntfId;
using Netcore::IpGenPrefix;

struct Family {
  char const* name;
  Netcore::AddressFamily af;
  char const* source;
  char const* group;
};
void PrintTo(Family const& f, std::ostream* os) { *os << f.name; }

class RecoverySmTest : public ::testing::TestWithParam<Family> {
 protected:
  RecoverySmTest() {
    l3Status_->vrfIs("red", 5);
    l3Status_->vrfIs("green", 7);
    vlans_->mappingIs(IntfId::vlan(100), Bridging::VlanId(100));
    vlans_->mappingIs(IntfId::vlan(200), Bridging::VlanId(200));
  }

  IpGenRouteKey key() const { return IpGenRouteKey(IpGenPrefix(GetParam().source), IpGenPrefix(GetParam().group)); }
  // "( <source>, <group>, <vlan> )" as the machine traces a route.
  std::string routeText(int vlan) const {
    return std::string("( ") + IpGenPrefix(GetParam().source).stringValue() + ", " + IpGenPrefix(GetParam().group).stringValue() +
           ", " + std::to_string(vlan) + " )";
  }
  Vex::Ptr<Routing::Multicast::Fib::Hardware::RouteStatus const> route(L3::VrfName const& vrf) const {
    auto v = std::as_const(*hw_).vrfStatus(vrf);
    return v ? v->route(key()) : nullptr;
  }

  Vex::Ptr<Fal::L3Status> l3Status_ = Vex::make<Fal::L3Status>();
  Vex::Ptr<IntfVlanId::Table> vlans_ = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<VrfEnabledStatus> enabled_ = Vex::make<VrfEnabledStatus>();
  Vex::Ptr<Status> hw_ = Vex::make<Status>(GetParam().af);
  Vex::Ptr<Fal::Mroute::RecoverySm> sm_ = Fal::Mroute::recoverySmFactory(l3Status_, vlans_, enabled_, hw_);
  FalMrouteTest::TraceCapture trace_{"FalMrouteRecovery", 0, 9};
};

TEST_P(RecoverySmTest, RouteWithVlanIsAcceptedOnTheVlanInterface) {
  sm_->doAddMfibHwStatusEntry(5, key(), Bridging::VlanIdOrNone(100));
  ASSERT_TRUE(route("red"));
  EXPECT_EQ(route("red")->acceptingIntfId(), IntfId::vlan(100));
  EXPECT_EQ(route("red")->vrfName(), L3::VrfName("red"));
  EXPECT_EQ(hw_->routes(), 1u);
  EXPECT_EQ(trace_.lines(), (std::vector<std::string>{
                                "8 FalMrouteRecoverySm doAddMfibHwStatusEntry",
                                "7 FalMrouteRecoverySm doAddMfibHwStatusEntry" + routeText(100) + ", Added route to VRF red",
                            }));
}

TEST_P(RecoverySmTest, RouteWithoutVlanHasTheEmptyAcceptingInterface) {
  sm_->doAddMfibHwStatusEntry(5, key(), Bridging::VlanIdOrNone());
  ASSERT_TRUE(route("red"));
  EXPECT_TRUE(route("red")->acceptingIntfId().isEmpty());
  EXPECT_EQ(trace_.lines().back(), "7 FalMrouteRecoverySm doAddMfibHwStatusEntry" + routeText(0) + ", Added route to VRF red");
}

TEST_P(RecoverySmTest, VlanWithoutInterfaceGivesTheEmptyAcceptingInterface) {
  sm_->doAddMfibHwStatusEntry(5, key(), Bridging::VlanIdOrNone(300));
  ASSERT_TRUE(route("red"));
  EXPECT_TRUE(route("red")->acceptingIntfId().isEmpty());
}

TEST_P(RecoverySmTest, AddingARouteAgainKeepsOneStatusWithTheLaterInterface) {
  sm_->doAddMfibHwStatusEntry(5, key(), Bridging::VlanIdOrNone(100));
  auto const first = route("red");
  sm_->doAddMfibHwStatusEntry(5, key(), Bridging::VlanIdOrNone(200));
  EXPECT_EQ(route("red"), first);
  EXPECT_EQ(route("red")->acceptingIntfId(), IntfId::vlan(200));
  sm_->doAddMfibHwStatusEntry(5, key(), Bridging::VlanIdOrNone());
  EXPECT_TRUE(route("red")->acceptingIntfId().isEmpty());
  EXPECT_EQ(hw_->routes(), 1u);
}

TEST_P(RecoverySmTest, UnknownVrfIdIsTracedAndIgnored) {
  sm_->doAddMfibHwStatusEntry(9, key(), Bridging::VlanIdOrNone(100));
  EXPECT_EQ(hw_->vrfStatusSize(), 0u);
  EXPECT_EQ(trace_.lines(), (std::vector<std::string>{
                                "8 FalMrouteRecoverySm doAddMfibHwStatusEntry",
                                "7 FalMrouteRecoverySm doAddMfibHwStatusEntry" + routeText(100) + ", Vrf does not exist",
                            }));
}

TEST_P(RecoverySmTest, RouteOfAVrfThatIsNotEnabledGetsItsVrfStatusOnDemand) {
  enabled_->vrfIs("red");
  sm_->doAddMfibHwVrfStatus();
  ASSERT_FALSE(std::as_const(*hw_).vrfStatus("green"));
  sm_->doAddMfibHwStatusEntry(7, key(), Bridging::VlanIdOrNone(200));
  ASSERT_TRUE(route("green"));
  EXPECT_EQ(route("green")->acceptingIntfId(), IntfId::vlan(200));
  EXPECT_EQ(hw_->vrfStatusSize(), 2u);
  EXPECT_EQ(std::as_const(*hw_).vrfStatus("red")->routeSize(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Families, RecoverySmTest,
                         ::testing::Values(Family{"Ipv4", Netcore::AddressFamily::ipv4, "10.0.0.1", "239.1.1.1"},
                                           Family{"Ipv6StarG", Netcore::AddressFamily::ipv6, "::/0", "ff3e::8000:1"}),
                         [](auto const& info) { return std::string(info.param.name); });

class RecoverySmVrfTest : public ::testing::Test {
 protected:
  Vex::Ptr<Fal::L3Status> l3Status_ = Vex::make<Fal::L3Status>();
  Vex::Ptr<IntfVlanId::Table> vlans_ = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<VrfEnabledStatus> enabled_ = Vex::make<VrfEnabledStatus>();
  Vex::Ptr<Status> hw_ = Vex::make<Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Fal::Mroute::RecoverySm> sm_ = Fal::Mroute::recoverySmFactory(l3Status_, vlans_, enabled_, hw_);
};

TEST_F(RecoverySmVrfTest, EveryEnabledVrfGetsAVrfStatusAndExistingOnesAreKept) {
  FalMrouteTest::TraceCapture trace("FalMrouteRecovery", 0, 9);
  IpGenRouteKey const key(IpGenPrefix("10.0.0.1"), IpGenPrefix("239.1.1.1"));
  auto const red = hw_->vrfStatusIs("red");
  red->routeIs(key)->acceptingIntfIdIs(IntfId::vlan(10));
  enabled_->vrfIs("red");
  enabled_->vrfIs("blue");
  enabled_->vrfIs("default");

  sm_->doAddMfibHwVrfStatus();

  EXPECT_EQ(hw_->vrfStatusSize(), 3u);
  EXPECT_TRUE(std::as_const(*hw_).vrfStatus("blue"));
  EXPECT_TRUE(std::as_const(*hw_).vrfStatus("default"));
  EXPECT_EQ(hw_->vrfStatus("red"), red);
  EXPECT_EQ(red->route(key)->acceptingIntfId(), IntfId::vlan(10));
  EXPECT_EQ(trace.lines(), std::vector<std::string>{"8 FalMrouteRecoverySm doAddMfibHwVrfStatus"});
}

TEST_F(RecoverySmVrfTest, AttributesAreTheFactoryArguments) {
  EXPECT_EQ(sm_->falL3Status(), l3Status_);
  EXPECT_EQ(sm_->intfVlanIdTable(), vlans_);
  EXPECT_EQ(sm_->vrfEnabledStatus(), enabled_);
  EXPECT_EQ(sm_->mfibHwStatus(), hw_);
}

// A VLAN read back from hardware is checked when it becomes a VLAN id, so an
// impossible one never reaches the status.
TEST_F(RecoverySmVrfTest, VlanOutsideItsRangeIsRefusedWithItsRangeError) {
  l3Status_->vrfIs("red", 5);
  IpGenRouteKey const key(IpGenPrefix("10.0.0.1"), IpGenPrefix("239.1.1.1"));
  for (unsigned raw : {0u, 4095u}) {
    try {
      sm_->doAddMfibHwStatusEntry(5, key, Bridging::VlanId(raw));
      ADD_FAILURE() << "VLAN " << raw << " accepted";
    } catch (Vex::RangeException const& e) {
      EXPECT_STREQ(e.what(), "VlanId::value < 1 or > 4094 not allowed");
    }
  }
  EXPECT_EQ(hw_->vrfStatusSize(), 0u);
}

}  // namespace
