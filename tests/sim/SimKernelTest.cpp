// mroute-sim with its chips on the Linux kernel: the scenario field, and runs
// whose real packets are checked against the reference chip, including what
// the kernel refuses and an agent restart.
#include <gtest/gtest.h>

#include <string>

#include "kernel/KernelNetns.h"
#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::ScenarioError;
using FalSim::ScenarioLoader;
using FalSim::SimReport;
using FalSim::SimRunner;

TEST(SimKernelScenarioTest, ChipKindIsReferenceOrKernel) {
  EXPECT_TRUE(ScenarioLoader::parse(R"({"chips": {"chip": "kernel"}, "events": []})", "t.json").chips.kernel);
  EXPECT_FALSE(ScenarioLoader::parse(R"({"chips": {"chip": "reference"}, "events": []})", "t.json").chips.kernel);
  EXPECT_FALSE(ScenarioLoader::parse(R"({"events": []})", "t.json").chips.kernel);
  try {
    ScenarioLoader::parse(R"({"chips": {"chip": "asic"}, "events": []})", "t.json");
    FAIL() << "accepted an unknown chip kind";
  } catch (ScenarioError const& e) {
    EXPECT_STREQ(e.what(), "t.json: chips.chip: expected one of \"reference\", \"kernel\", got the string \"asic\"");
  }
}

class SimKernelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static auto const why = FalKernel::KernelNetns::unavailable();
    if (why) GTEST_SKIP() << *why;
  }
  static SimReport run(std::string const& json) { return SimRunner(ScenarioLoader::parse(json, "t.json")).run(); }
};

TEST_F(SimKernelTest, WhatTheKernelRefusesIsRefusedToTheLibraryAndTakenBackFromTheReferenceChip) {
  // The input and 31 ports take every virtual interface; the route on port 32
  // fits the reference chip but not the kernel.
  std::string ports;
  for (int n = 1; n <= 31; ++n) ports += (n > 1 ? ", " : "") + std::string("\"Ethernet") + std::to_string(n) + "\"";
  SimReport const report = run(R"({"chips": {"chip": "kernel"}, "interfaces": {"ethernet": 32, "vlans": [10]},
    "routeSets": [{"name": "wide", "routes": [{"source": "192.0.2.1", "group": "239.1.1.1", "acceptingVlan": 10,
                                               "outputs": [)" + ports + R"(]}]},
                  {"name": "extra", "routes": [{"source": "192.0.2.1", "group": "239.1.1.2", "acceptingVlan": 10,
                                                "outputs": ["Ethernet32"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "wide"}, {"at": 1, "do": "addRoutes", "set": "extra"},
               {"at": 2, "do": "traffic", "set": "wide", "expectForwarded": true},
               {"at": 2, "do": "traffic", "source": "192.0.2.1", "group": "239.1.1.2", "vlan": 10, "expectDropped": "noRoute"}]})");
  EXPECT_TRUE(report.ok()) << (report.findings.empty() ? "" : report.findings.front());
  EXPECT_EQ(report.violations, 0u);
  EXPECT_EQ(report.routesParked, 1u);
  EXPECT_GE(report.kernelRefusals, 1u);
  EXPECT_EQ(report.realPacketsSent, 2u);
  EXPECT_EQ(report.realCopiesCaptured, 31u);
  EXPECT_EQ(report.realPacketsNotAsPredicted, 0u);
}

TEST_F(SimKernelTest, AfterARestartTheNewAgentsRoutesCarryRealPackets) {
  SimReport const report = run(R"({"chips": {"chip": "kernel", "count": 2}, "interfaces": {"ethernet": 4, "vlans": [10, 20]},
    "routeSets": [{"name": "s", "routes": [
      {"source": "192.0.2.1", "group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.20", "Ethernet2.20"]},
      {"source": "2001:db8::1", "group": "ff3e::1", "acceptingVlan": 10, "outputs": ["Ethernet3.20"]}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "traffic", "set": "s", "expectForwarded": true},
               {"at": 3, "do": "restart"},
               {"at": 4, "do": "traffic", "set": "s", "expectForwarded": true},
               {"at": 5, "do": "removeRoute", "source": "192.0.2.1", "group": "239.1.1.1"},
               {"at": 6, "do": "traffic", "source": "192.0.2.1", "group": "239.1.1.1", "vlan": 10, "expectDropped": "noRoute"}]})");
  EXPECT_TRUE(report.ok()) << (report.findings.empty() ? "" : report.findings.front());
  EXPECT_EQ(report.kernelChips, 2u);
  // Two flows on two chips, twice, and the deleted route's packet on both.
  EXPECT_EQ(report.realPacketsSent, 10u);
  EXPECT_EQ(report.realCopiesCaptured, 12u);
  EXPECT_EQ(report.realPacketsNotAsPredicted, 0u);
}

}  // namespace
