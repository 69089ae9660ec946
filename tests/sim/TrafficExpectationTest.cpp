// What a traffic event may demand of its packets, and what it takes to meet
// it: the copies ("expect", which a dropped packet never meets, even with no
// copies expected), forwarding, or a drop for a given reason.
#include <gtest/gtest.h>

#include <string>

#include "sim/ScenarioLoader.h"
#include "sim/SimRunner.h"

namespace {

using FalSim::SimReport;
using FalSim::SimRunner;

// 239.1.1.1 accepts on VLAN 10 and leaves on Ethernet1.10; 239.1.1.2 accepts
// on VLAN 10 and leaves nowhere; a boundary stops 239.1.1.3 on VLAN 20.
SimReport runWith(std::string const& traffic) {
  return SimRunner(FalSim::ScenarioLoader::parse(R"({"interfaces": {"ethernet": 2, "vlans": [10, 20]},
    "routeSets": [{"name": "s", "routes": [
      {"source": "10.0.0.1", "group": "239.1.1.1", "acceptingVlan": 10, "outputs": ["Ethernet1.10"]},
      {"source": "10.0.0.1", "group": "239.1.1.2", "acceptingVlan": 10, "outputs": []},
      {"group": "239.1.1.3", "acceptingVlan": 20, "bridge": true}]}],
    "events": [{"at": 1, "do": "addRoutes", "set": "s"},
               {"at": 2, "do": "traffic", "source": "10.0.0.1", "packets": 2, )" + traffic + "}]}",
                                                 "drops.json"))
      .run();
}

struct ExpectationCase {
  char const* name;
  std::string traffic;
  // Empty when the expectation is met.
  std::string finding;
};

std::ostream& operator<<(std::ostream& os, ExpectationCase const& c) { return os << c.name; }

class TrafficExpectationTest : public ::testing::TestWithParam<ExpectationCase> {};

TEST_P(TrafficExpectationTest, IsMetExactlyWhenThePacketsDoWhatItSays) {
  SimReport const report = runWith(GetParam().traffic);
  EXPECT_EQ(report.violations, 0u);
  if (GetParam().finding.empty()) {
    EXPECT_TRUE(report.ok()) << (report.findings.empty() ? "" : report.findings[0]);
    EXPECT_EQ(report.expectationsMet, 1u);
  } else {
    EXPECT_EQ(report.expectationsFailed, 1u);
    ASSERT_EQ(report.findings.size(), 1u);
    EXPECT_EQ(report.findings[0], "events[1]: chip 0: " + GetParam().finding);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, TrafficExpectationTest,
    ::testing::Values(
        ExpectationCase{"NoRouteIsANoRouteDrop", R"("group": "239.1.1.9", "vlan": 10, "expectDropped": "noRoute")", ""},
        ExpectationCase{"WrongVlanIsAnRpfDrop", R"("group": "239.1.1.1", "vlan": 20, "expectDropped": "rpfFail")", ""},
        ExpectationCase{"BoundaryStopsItsVlan", R"("group": "239.1.1.3", "vlan": 20, "expectDropped": "boundary")", ""},
        ExpectationCase{"UntaggedFailsRpf", R"("group": "239.1.1.1", "expectDropped": "rpfFail")", ""},
        ExpectationCase{"NoCopiesIsForwardedToNoPort", R"("group": "239.1.1.2", "vlan": 10, "expect": [])", ""},
        ExpectationCase{"ForwardedToNoPortIsForwarded", R"("group": "239.1.1.2", "vlan": 10, "expectForwarded": true)", ""},
        ExpectationCase{"DropIsNotNoCopies", R"("group": "239.1.1.9", "vlan": 10, "expect": [])",
                        "(10.0.0.1, 239.1.1.9) on VLAN 10 gave dropped (noRoute), expected []"},
        ExpectationCase{"NoCopiesIsNotADrop", R"("group": "239.1.1.2", "vlan": 10, "expectDropped": "noRoute")",
                        "(10.0.0.1, 239.1.1.2) on VLAN 10 gave [], expected to be dropped (noRoute)"},
        ExpectationCase{"ForwardedIsNotADrop", R"("group": "239.1.1.1", "vlan": 10, "expectDropped": "rpfFail")",
                        "(10.0.0.1, 239.1.1.1) on VLAN 10 gave [Ethernet1.10], expected to be dropped (rpfFail)"},
        ExpectationCase{"TheReasonMustMatch", R"("group": "239.1.1.1", "vlan": 20, "expectDropped": "noRoute")",
                        "(10.0.0.1, 239.1.1.1) on VLAN 20 gave dropped (rpfFail), expected to be dropped (noRoute)"}),
    [](auto const& info) { return std::string(info.param.name); });

}  // namespace
