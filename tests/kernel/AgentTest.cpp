// The agent end to end over reference chips, with the kernel played by
// FakeRtnlKernel, in virtual time: routes of the kernel table end up on every
// chip and forward there, a port going down reroutes its protected sets, a
// re-read configuration takes effect, and shutdown leaves the chips empty.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <linux/if.h>

#include "kernel/agent/Agent.h"
#include "kernel/agent/AgentConfigLoader.h"
#include "platform/vex/ActivityManager.h"
#include "tests/doubles/FakeRtnlKernel.h"
#include "tests/doubles/ShmNames.h"
#include "tools/PublishedCounters.h"

namespace {

using FalKernel::MfcEntry;
using MrouteLib::PortVlan;
using Netcore::IpGenAddr;
using Copies = std::vector<PortVlan>;

constexpr int kIn = 2, kOut1 = 3, kOut2 = 4, kOut3 = 5;

constexpr char const* kConfig = R"({
  "interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                 {"name": "out1", "port": "Ethernet2", "vlan": 200, "frrBackups": ["Ethernet4.200"]},
                 {"name": "out2", "port": "Ethernet3", "vlan": 200},
                 {"name": "out3", "port": "Ethernet3", "vlan": 300}],
  "chips": [{"name": "a"}, {"name": "b", "routes": 64}],
  "zombies": {"enabled": true, "lifetime": 2.0}})";

MfcEntry mfc(char const* group, int iif, std::initializer_list<int> oifs) {
  MfcEntry e;
  e.af = Netcore::AddressFamily::ipv4;
  e.table = 253;
  e.source = IpGenAddr("10.0.0.2");
  e.group = IpGenAddr(group);
  e.iif = iif;
  e.oifs.assign(oifs.begin(), oifs.end());
  return e;
}

class AgentTest : public ::testing::Test {
 protected:
  AgentTest() {
    kernel_.linkIs({kIn, "in0", true, IF_OPER_UP});
    kernel_.linkIs({kOut1, "out1", true, IF_OPER_UP});
    kernel_.linkIs({kOut2, "out2", true, IF_OPER_UP});
    kernel_.linkIs({kOut3, "out3", true, IF_OPER_UP});
  }
  void start(std::string const& config = kConfig, std::string const& countersName = {}) {
    agent_ = std::make_unique<FalAgent::Agent>(FalAgent::AgentConfigLoader::parse(config, "agent.json"),
                                               kernel_.dumpChannel(), kernel_.eventChannel());
    agent_->start(countersName);
    settle();
  }
  void settle() { am_.runFor(0); }
  // Where chip sends a packet from 10.0.0.2 to group arriving on VLAN 100.
  Copies forward(std::uint32_t chip, char const* group) const {
    return agent_->referenceChip().forward(chip, 0, IpGenAddr("10.0.0.2"), IpGenAddr(group), Bridging::VlanIdOrNone(100));
  }

  // Not from 0: the library takes a counter row updated at time 0 for one
  // never published.
  Vex::ActivityManager am_{std::make_unique<Vex::VirtualTimeSource>(1.0)};
  FalTest::FakeRtnlKernel kernel_;
  std::unique_ptr<FalAgent::Agent> agent_;
};

TEST_F(AgentTest, KernelRoutesAreProgrammedOnEveryChipAndShareTheirEntries) {
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut1, kOut2}));
  kernel_.mfcIs(mfc("239.1.1.2", kIn, {kOut2, kOut1}));
  kernel_.mfcIs(mfc("239.1.1.3", kIn, {kOut3}));
  start();
  for (std::uint32_t chip : {0u, 1u}) {
    EXPECT_EQ(forward(chip, "239.1.1.1"), (Copies{PortVlan("Ethernet2.200"), PortVlan("Ethernet3.200")})) << chip;
    EXPECT_EQ(forward(chip, "239.1.1.3"), (Copies{PortVlan("Ethernet3.300")})) << chip;
    EXPECT_EQ(agent_->referenceChip().replicationEntries(chip).size(), 2u);
  }
  auto const s = agent_->status();
  EXPECT_TRUE(s.synchronized);
  EXPECT_EQ(s.routesWanted, 3u);
  EXPECT_EQ(s.routesProgrammed, 3u);
  EXPECT_EQ(s.replicationEntries, 4u);  // two per chip
  EXPECT_DOUBLE_EQ(s.sharing, 1.5);
  std::string const expected =
      "routes wanted 3 programmed 3 parked 0 | replication entries 4 (0 zombies, sharing 1.50) | ports down 0";
  EXPECT_EQ(FalAgent::statusLine(s).substr(0, expected.size()), expected);
}

TEST_F(AgentTest, KernelChangesAreFollowedOnTheChips) {
  start();
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut1}));
  settle();
  EXPECT_EQ(forward(1, "239.1.1.1"), (Copies{PortVlan("Ethernet2.200")}));
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut3}));
  settle();
  EXPECT_EQ(forward(1, "239.1.1.1"), (Copies{PortVlan("Ethernet3.300")}));
  kernel_.mfcDel(mfc("239.1.1.1", kIn, {}));
  settle();
  EXPECT_TRUE(forward(1, "239.1.1.1").empty());
  EXPECT_EQ(agent_->status().routesWanted, 0u);
  EXPECT_EQ(agent_->status().zombies, 4u);  // both sets it had wait on both chips...
  am_.runFor(2.5);
  EXPECT_EQ(agent_->status().replicationEntries, 0u);  // ...until their lifetime runs out
}

TEST_F(AgentTest, OutputPortGoingDownReroutesItsProtectedSetsToTheBackups) {
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut1, kOut2}));
  kernel_.mfcIs(mfc("239.1.1.3", kIn, {kOut3}));
  start();
  kernel_.linkIs({kOut1, "out1", false, IF_OPER_DOWN});
  am_.runFor(1.0);
  for (std::uint32_t chip : {0u, 1u}) {
    EXPECT_EQ(forward(chip, "239.1.1.1"), (Copies{PortVlan("Ethernet3.200"), PortVlan("Ethernet4.200")})) << chip;
    EXPECT_EQ(forward(chip, "239.1.1.3"), (Copies{PortVlan("Ethernet3.300")})) << chip;
  }
  auto const s = agent_->status();
  EXPECT_EQ(s.portsDown, 1u);
  EXPECT_EQ(s.inPlaceRewrites, 2u);  // one protected set on each chip
}

TEST_F(AgentTest, FullChipParksWhatDoesNotFitAndTheStatusSaysSo) {
  start(R"({"interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                           {"name": "out1", "port": "Ethernet2", "vlan": 200}],
            "chips": [{"routes": 2}]})");
  for (char const* g : {"239.1.1.1", "239.1.1.2", "239.1.1.3"}) kernel_.mfcIs(mfc(g, kIn, {kOut1}));
  settle();
  auto const s = agent_->status();
  EXPECT_EQ(s.routesWanted, 3u);
  EXPECT_EQ(s.routesProgrammed, 2u);
  EXPECT_EQ(s.routesParked, 1u);
  kernel_.mfcDel(mfc("239.1.1.1", kIn, {}));
  settle();
  EXPECT_EQ(agent_->status().routesParked, 0u);
  EXPECT_EQ(agent_->status().routesProgrammed, 2u);
}

TEST_F(AgentTest, ReReadConfigurationTakesEffectExceptWhatNeedsARestart) {
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut1, kOut2}));
  start();
  std::string const changed = R"({
    "interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                   {"name": "out1", "port": "Ethernet7", "vlan": 700}],
    "chips": [{"name": "a"}],
    "zombies": {"enabled": false},
    "counters": {"all": true, "routes": true}})";
  auto const restart = agent_->configIs(FalAgent::AgentConfigLoader::parse(changed, "agent.json"));
  settle();
  EXPECT_EQ(restart, (std::vector<std::string>{"chips"}));
  EXPECT_EQ(agent_->config().chips.size(), 2u);
  for (std::uint32_t chip : {0u, 1u}) EXPECT_EQ(forward(chip, "239.1.1.1"), (Copies{PortVlan("Ethernet7.700")}));
  EXPECT_FALSE(agent_->platform().l3Status().mrouteZombieEnabled());
  auto const key = agent_->platform().programmer().oifSet(L3::VrfName("default"),
                                                           {Netcore::IpGenPrefix("10.0.0.2/32"), Netcore::IpGenPrefix("239.1.1.1/32")});
  ASSERT_TRUE(key);
  auto const counted = agent_->platform().vrfConfig(Netcore::AddressFamily::ipv4).config(L3::VrfName("default"));
  ASSERT_TRUE(counted);
  EXPECT_TRUE(counted->counterRoute({Netcore::IpGenPrefix("10.0.0.2/32"), Netcore::IpGenPrefix("239.1.1.1/32")}));
  EXPECT_EQ(agent_->status().zombies, 0u);  // the old set went at once: zombies are off
}

TEST_F(AgentTest, CountersOfMirroredRoutesArePublishedForOtherProcesses) {
  std::string const base = FalMrouteTest::uniqueShmName("agent");
  std::string table = base;
  table += FalTools::PublishedCounters::kCounterStatusSuffix;
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut1}));
  kernel_.mfcIs(mfc("239.1.1.2", kIn, {kOut2}));
  {
    start(R"({"interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                             {"name": "out1", "port": "Ethernet2", "vlan": 200},
                             {"name": "out2", "port": "Ethernet3", "vlan": 200}],
              "counters": {"all": true, "routes": true}})",
          table);
    FalTools::PublishedCounters reader(base);
    am_.runFor(3.0);  // a counter poll
    reader.refresh();
    ASSERT_TRUE(reader.anyPublished());
    EXPECT_EQ(reader.counterStatus().size(), 3u);  // the two routes' and all routes' (the wildcard)
    Routing::Multicast::Fib::IpGenRouteKey const key(Netcore::IpGenPrefix("10.0.0.2/32"),
                                                    Netcore::IpGenPrefix("239.1.1.2/32"));
    EXPECT_EQ(reader.counterStatus().counter(key).routeKey(), key);

    kernel_.mfcDel(mfc("239.1.1.2", kIn, {}));
    settle();
    reader.refresh();

    EXPECT_EQ(reader.counterStatus().size(), 2u);
    agent_.reset();
  }
  EXPECT_EQ(FalMrouteTest::shmLeftovers(), std::vector<std::string>());
}

TEST_F(AgentTest, ShutdownLeavesTheChipsEmptyThroughTheLibrarysOwnCleanup) {
  kernel_.mfcIs(mfc("239.1.1.1", kIn, {kOut1}));
  kernel_.mfcIs(mfc("239.1.1.2", kIn, {kOut2}));
  start();
  kernel_.mfcDel(mfc("239.1.1.2", kIn, {}));
  settle();
  ASSERT_EQ(agent_->status().zombies, 2u);
  auto const& chip = agent_->referenceChip();
  ASSERT_TRUE(chip.multicastRoutingEnabled());

  agent_->shutdown();
  EXPECT_FALSE(agent_->running());
  for (std::uint32_t c : {0u, 1u}) {
    EXPECT_TRUE(chip.routes(c).empty());
    EXPECT_TRUE(chip.replicationEntries(c).empty());  // zombies freed too
    EXPECT_FALSE(chip.switchInitialized(c));
  }
  EXPECT_FALSE(chip.multicastRoutingEnabled());
  EXPECT_FALSE(chip.mrouteInitialized());
  EXPECT_TRUE(chip.violations().empty());
  EXPECT_EQ(am_.fileDescriptorsWatched(), 0u);
}

}  // namespace
