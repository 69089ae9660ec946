// mroute-agent's configuration: a good file reads into the values the agent
// runs with, defaults included; a bad one is refused with a message naming
// the file, the field and what was expected.
#include <string>

#include <gtest/gtest.h>

#include "kernel/agent/AgentConfigLoader.h"

namespace {

using FalAgent::AgentConfig;
using FalAgent::AgentConfigLoader;
using MrouteLib::PortVlan;
using Netcore::AddressFamily;

constexpr char const* kInterfaces =
    R"("interfaces": [{"name": "in0", "port": "Ethernet1", "vlan": 100},
                      {"name": "out1", "port": "Ethernet2", "vlan": 200, "frrBackups": ["Ethernet4.200"]}])";

TEST(AgentConfigLoaderTest, FullFileReadsIntoTheAgentsValues) {
  std::string const text = std::string(R"({
    "source": {"namespace": "src", "receiveBuffer": 65536},
    "vrfs": [{"name": "default", "id": 0, "ipv4Table": 253, "ipv6Table": 254},
             {"name": "red", "id": 7, "ipv4Table": 10}],
    )") + kInterfaces + R"(,
    "chips": [{"name": "a", "flavour": "sync", "backend": "reference", "routes": 10, "boundaries": 2, "replicationEntries": 3},
              {"backend": "kernel", "namespace": "fal-chip"}],
    "zombies": {"enabled": false, "lifetime": 1.5},
    "aging": {"activityPollingInterval": 20},
    "counters": {"mode": "bytes", "all": true, "routes": true, "publish": "agent-1"},
    "status": {"interval": 0.5}})";
  AgentConfig const c = AgentConfigLoader::parse(text, "agent.json");
  EXPECT_EQ(c.sourceNamespace, "src");
  EXPECT_EQ(c.receiveBuffer, 65536);
  ASSERT_EQ(c.vrfs.size(), 2u);
  EXPECT_EQ(c.vrfs[1].id, 7);
  EXPECT_EQ(c.vrfs[1].ipv4Table, 10u);
  EXPECT_FALSE(c.vrfs[1].ipv6Table);
  ASSERT_EQ(c.chips.size(), 2u);
  EXPECT_EQ(c.chips[0].name, "a");
  EXPECT_EQ(c.chips[0].capacity.replicationEntries, 3u);
  EXPECT_EQ(c.chips[1].name, "chip1");
  EXPECT_EQ(c.chips[1].backend, AgentConfig::Chip::Backend::kernel);
  EXPECT_EQ(c.chips[1].netns, "fal-chip");
  EXPECT_FALSE(c.zombiesEnabled);
  EXPECT_EQ(c.zombieLifetime, 1.5);
  EXPECT_EQ(c.activityPollingInterval, 20);
  EXPECT_EQ(c.counterMode, Routing::Multicast::Fib::CounterMode::bytes);
  EXPECT_TRUE(c.allCounter);
  EXPECT_TRUE(c.countRoutes);
  EXPECT_EQ(c.countersBase(42), "agent-1");
  EXPECT_EQ(c.statusInterval, 0.5);

  auto const map = c.sourceMap();
  EXPECT_EQ(*map.vrf(AddressFamily::ipv4, 10), L3::VrfName("red"));
  EXPECT_EQ(*map.vrf(AddressFamily::ipv6, 254), L3::VrfName("default"));
  EXPECT_EQ(map.vrf(AddressFamily::ipv6, 10), nullptr);
  ASSERT_NE(map.interface("out1"), nullptr);
  EXPECT_EQ(map.interface("out1")->portVlan, PortVlan("Ethernet2.200"));
  EXPECT_EQ(map.interface("out1")->frrBackups, (std::vector<PortVlan>{PortVlan("Ethernet4.200")}));
}

TEST(AgentConfigLoaderTest, DefaultsMirrorTheKernelsDefaultTablesOntoOneReferenceChip) {
  AgentConfig const c = AgentConfigLoader::parse(std::string("{") + kInterfaces + "}", "agent.json");
  EXPECT_TRUE(c.sourceNamespace.empty());
  ASSERT_EQ(c.vrfs.size(), 1u);
  EXPECT_EQ(c.vrfs[0].name, L3::VrfName("default"));
  EXPECT_EQ(c.vrfs[0].ipv4Table, 253u);
  EXPECT_EQ(c.vrfs[0].ipv6Table, 254u);
  ASSERT_EQ(c.chips.size(), 1u);
  EXPECT_EQ(c.chips[0].backend, AgentConfig::Chip::Backend::reference);
  EXPECT_TRUE(c.zombiesEnabled);
  EXPECT_EQ(c.zombieLifetime, 4.0);
  EXPECT_FALSE(c.countRoutes);
  EXPECT_EQ(c.countersBase(42), "mroute-agent-42");
}

TEST(AgentConfigLoaderTest, RestartIsNeededOnlyForSourceVrfsAndChips) {
  AgentConfig const a = AgentConfigLoader::parse(std::string("{") + kInterfaces + "}", "a.json");
  AgentConfig b = a;
  b.zombieLifetime = 9;
  b.interfaces.erase("out1");
  b.countRoutes = true;
  EXPECT_TRUE(a.restartNeeded(b).empty());
  b.chips.push_back({});
  b.sourceNamespace = "other";
  b.countersPublishedAs = "elsewhere";
  EXPECT_EQ(a.restartNeeded(b), (std::vector<std::string>{"source", "chips", "counters.publish"}));
}

struct BadCase {
  char const* name;
  std::string text;
  std::string message;
};

class BadConfigTest : public ::testing::TestWithParam<BadCase> {};

TEST_P(BadConfigTest, IsRefusedNamingTheFieldAndTheExpectedForm) {
  try {
    AgentConfigLoader::parse(GetParam().text, "agent.json");
    FAIL() << "accepted";
  } catch (FalSim::FileError const& e) {
    EXPECT_EQ(std::string(e.what()), GetParam().message);
    EXPECT_EQ(e.file(), "agent.json");
  }
}

std::string with(std::string const& rest) { return std::string("{") + kInterfaces + ", " + rest + "}"; }

INSTANTIATE_TEST_SUITE_P(
    Cases, BadConfigTest,
    ::testing::Values(
        BadCase{"AsyncFlavour", with(R"("chips": [{"flavour": "async"}])"),
                "agent.json: chips[0].flavour: expected \"sync\" (the only flavour mroute-agent runs today), got the "
                "string \"async\""},
        BadCase{"UnknownBackend", with(R"("chips": [{"backend": "asic"}])"),
                "agent.json: chips[0].backend: expected \"reference\" (a software model of the chip's tables) or "
                "\"kernel\" (the Linux kernel's forwarding too), got the string \"asic\""},
        BadCase{"NamespaceOfAReferenceChip", with(R"("chips": [{"backend": "reference", "namespace": "x"}])"),
                "agent.json: chips[0].namespace: expected no namespace on a chip whose backend is not \"kernel\", got "
                "the string \"x\""},
        BadCase{"NoInterfaces", "{}", "agent.json: interfaces: expected a list of kernel interfaces, got nothing"},
        BadCase{"FieldTwice", with(R"("status": {"interval": 1, "interval": 2})"),
                "agent.json: status.interval: expected each field once per object, got a second one"},
        BadCase{"FractionForAWholeNumber", with(R"("aging": {"activityPollingInterval": 10.0})"),
                "agent.json: aging.activityPollingInterval: expected a whole number (an interval in seconds from 1 to "
                "255), got the number 10.0"},
        BadCase{"UnknownField", with(R"("zombie": {})"),
                "agent.json: zombie: expected a known field (one of source, vrfs, interfaces, chips, zombies, aging, "
                "counters, status), got an unknown field"},
        BadCase{"VlanOutOfRange", R"({"interfaces": [{"name": "a", "port": "Ethernet1", "vlan": 4095}]})",
                "agent.json: interfaces[0].vlan: expected a VLAN id from 1 to 4094, got the number 4095"},
        BadCase{"PortNotEthernet", R"({"interfaces": [{"name": "a", "port": "Vlan100", "vlan": 100}]})",
                "agent.json: interfaces[0].port: expected an Ethernet interface name (\"Ethernet3\"), got the string "
                "\"Vlan100\""},
        BadCase{"SameNameTwice",
                R"({"interfaces": [{"name": "a", "port": "Ethernet1", "vlan": 100}, {"name": "a", "port": "Ethernet2", "vlan": 100}]})",
                "agent.json: interfaces[1].name: expected an interface name not listed before, got the string \"a\""},
        BadCase{"SameOutputTwice",
                R"({"interfaces": [{"name": "a", "port": "Ethernet1", "vlan": 100}, {"name": "b", "port": "Ethernet1", "vlan": 100}]})",
                "agent.json: interfaces[1].vlan: expected a port and VLAN no other interface stands for, got the number "
                "100"},
        BadCase{"BackupOnTheProtectedPort",
                R"({"interfaces": [{"name": "a", "port": "Ethernet1", "vlan": 100, "frrBackups": ["Ethernet1.200"]}]})",
                "agent.json: interfaces[0].frrBackups[0]: expected a backup on another port than the one it protects, "
                "got the string \"Ethernet1.200\""},
        BadCase{"TableTwice", with(R"("vrfs": [{"name": "a", "id": 1, "ipv4Table": 5}, {"name": "b", "id": 2, "ipv4Table": 5}])"),
                "agent.json: vrfs[1].ipv4Table: expected a table no other VRF mirrors, got the number 5"},
        BadCase{"VrfWithoutTables", with(R"("vrfs": [{"name": "a", "id": 1}])"),
                "agent.json: vrfs[0]: expected an ipv4Table or an ipv6Table (the kernel tables it mirrors), got an "
                "object"},
        BadCase{"NotJson", "{\n  \"interfaces\": [,]\n}",
                "agent.json: line 2, column 18: expected valid JSON (Invalid value.)"},
        BadCase{"SingleRoutesWithoutAll", with(R"("counters": {"routes": true})"),
                "agent.json: counters.routes: expected false while \"all\" is false (the library counts single routes "
                "only while it counts all), got true"},
        BadCase{"CountersNameWithASlash", with(R"("counters": {"publish": "a/b"})"),
                "agent.json: counters.publish: expected a base name for the shared-memory counter tables (letters, "
                "digits, '.', '_', '-'), got the string \"a/b\""},
        BadCase{"EmptyNamespace", with(R"("source": {"namespace": ""})"),
                "agent.json: source.namespace: expected a network namespace name (as `ip netns` lists it) or a path "
                "to one, got the string \"\""}),
    [](auto const& info) { return info.param.name; });

}  // namespace
