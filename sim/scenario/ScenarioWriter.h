#pragma once
// FalSim::ScenarioWriter: a Scenario as the scenario file that ScenarioLoader
// reads back into the same scenario, run for run.
//
// The soak writes the shortest scenario it found that reproduces a finding
// with it. Everything is written out in full: every route set as its list of
// routes (a generated set too), every route with its VRF, every setting of
// the agent, the end time; times and costs in the shortest form that reads
// back to the same double. A route's output set must be one a file can say
// (no NAT VLANs; its protected interface, if any, with backups).
#include <ostream>
#include <string>

#include "sim/Scenario.h"

namespace FalSim {

class ScenarioWriter {
 public:
  static void write(Scenario const& scenario, std::ostream& os);
  static std::string text(Scenario const& scenario);
};

}  // namespace FalSim
