// The agent end to end with a real routing daemon: smcroute holds static
// multicast routes in a namespace of its own, the agent mirrors them onto its
// chips in real time and follows the daemon's changes at run time; an output
// link set down reroutes the sets it protects; shutdown empties the chips.
// On a reference chip, and on a kernel chip beside it, where real packets
// must come out where the reference chip says. Needs root and smcroute;
// otherwise skipped with the reason.
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kernel/agent/Agent.h"
#include "kernel/agent/AgentConfigLoader.h"
#include "platform/vex/ActivityManager.h"
#include "tests/doubles/RunUntil.h"
#include "tests/doubles/SmcrouteDaemon.h"
#include "tests/doubles/TestNetns.h"

namespace {

using MrouteLib::PortVlan;
using Netcore::IpGenAddr;
using Copies = std::vector<PortVlan>;

constexpr char const* kDaemonConfig =
    "phyint in0 enable\n"
    "phyint out1 enable\n"
    "phyint out2 enable\n"
    "phyint out3 enable\n"
    "mroute from in0 source 10.0.0.2 group 239.1.1.1 to out1 out2\n"
    "mroute from in0 source 10.0.0.2 group 239.1.1.2 to out3\n";

class AgentSmcrouteTest : public ::testing::TestWithParam<char const*> {
 protected:
  void SetUp() override {
    for (auto why : {FalTest::TestNetns::unavailable(), FalTest::SmcrouteDaemon::unavailable()}) {
      if (!why.empty()) GTEST_SKIP() << why;
    }
    ns_ = std::make_unique<FalTest::TestNetns>("smc");
    for (char const* l : {"in0", "out1", "out2", "out3"}) ns_->vethIs(l, std::string(l) + "p");
    daemon_ = std::make_unique<FalTest::SmcrouteDaemon>(ns_->name(), kDaemonConfig);
    std::string const config = R"({"source": {"namespace": ")" + ns_->name() + R"("},
      "interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                     {"name": "out1", "port": "Ethernet2", "vlan": 200, "frrBackups": ["Ethernet5.200"]},
                     {"name": "out2", "port": "Ethernet3", "vlan": 200},
                     {"name": "out3", "port": "Ethernet4", "vlan": 300}],
      "chips": [{"backend": ")" + std::string(GetParam()) + R"("}]})";
    agent_ = FalAgent::Agent::open(FalAgent::AgentConfigLoader::parse(config, "agent.json"));
    agent_->start();
  }
  void TearDown() override {
    agent_.reset();
    daemon_.reset();
    ns_.reset();
  }

  bool runUntil(std::function<bool()> const& done) { return FalTest::runUntil(am_, done); }
  Copies forward(char const* group) const {
    return agent_->referenceChip().forward(0, 0, IpGenAddr("10.0.0.2"), IpGenAddr(group), Bridging::VlanIdOrNone(100));
  }
  bool forwardsTo(char const* group, Copies const& copies) const { return forward(group) == copies; }
  // On a kernel chip, a real packet's copies come out where the reference chip says.
  void realPacketAsPredicted(char const* group) const {
    auto* kernel = agent_->kernelBacking();
    if (!kernel) return;
    kernel->send(0, 0, Bridging::VlanIdOrNone(100), IpGenAddr("10.0.0.2"), IpGenAddr(group), forward(group), group);
    EXPECT_EQ(kernel->check(), std::vector<std::string>{}) << group;
  }

  Vex::ActivityManager am_{std::make_unique<Vex::MonotonicTimeSource>()};
  std::unique_ptr<FalTest::TestNetns> ns_;
  std::unique_ptr<FalTest::SmcrouteDaemon> daemon_;
  std::unique_ptr<FalAgent::Agent> agent_;
};

TEST_P(AgentSmcrouteTest, DaemonsRoutesAndTheirChangesAreFollowedOnTheChip) {
  Copies const both{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")};
  ASSERT_TRUE(runUntil([&] { return agent_->status().synchronized && forwardsTo("239.1.1.1", both); }));
  EXPECT_EQ(forward("239.1.1.2"), (Copies{PortVlan("Ethernet4.300")}));
  realPacketAsPredicted("239.1.1.1");
  realPacketAsPredicted("239.1.1.2");

  daemon_->add("in0", "10.0.0.2", "239.1.1.3", {"out2", "out3"});
  ASSERT_TRUE(runUntil([&] { return forwardsTo("239.1.1.3", {PortVlan("Ethernet3.200"), PortVlan("Ethernet4.300")}); }));

  daemon_->remove("in0", "10.0.0.2", "239.1.1.2");
  daemon_->add("in0", "10.0.0.2", "239.1.1.2", {"out1"});
  ASSERT_TRUE(runUntil([&] { return forwardsTo("239.1.1.2", {PortVlan("Ethernet2.200")}); }));
  realPacketAsPredicted("239.1.1.2");

  daemon_->remove("in0", "10.0.0.2", "239.1.1.3");
  ASSERT_TRUE(runUntil([&] { return forward("239.1.1.3").empty(); }));
  realPacketAsPredicted("239.1.1.3");
  EXPECT_EQ(agent_->status().routesWanted, 2u);
  EXPECT_EQ(agent_->status().routesProgrammed, 2u);
  EXPECT_EQ(agent_->status().sourceCounts.overflows, 0u);
}

TEST_P(AgentSmcrouteTest, OutputLinkDownReroutesToTheBackupAndShutdownEmptiesTheChip) {
  ASSERT_TRUE(runUntil([&] { return agent_->status().routesProgrammed == 2; }));
  ns_->ip("link set out1 down");
  ASSERT_TRUE(runUntil([&] { return forwardsTo("239.1.1.1", {PortVlan("Ethernet3.200"), PortVlan("Ethernet5.200")}); }));
  EXPECT_EQ(agent_->status().portsDown, 1u);
  EXPECT_EQ(agent_->status().inPlaceRewrites, 1u);
  realPacketAsPredicted("239.1.1.1");

  agent_->shutdown();
  auto const& chip = agent_->referenceChip();
  EXPECT_TRUE(chip.routes(0).empty());
  EXPECT_TRUE(chip.replicationEntries(0).empty());
  EXPECT_FALSE(chip.mrouteInitialized());
  EXPECT_TRUE(chip.violations().empty());
  EXPECT_EQ(agent_->kernelBacking(), nullptr);  // the kernel chips went with the library
}

INSTANTIATE_TEST_SUITE_P(Backends, AgentSmcrouteTest, ::testing::Values("reference", "kernel"),
                         [](auto const& info) { return std::string(info.param); });

}  // namespace
