#pragma once
// FalSim::GeneratorReader: a generated route set ("generate" in a route set
// of a scenario file), checked so that RouteSetGenerator can always make it.
//
//   {"count": 2000, "diversity": 8, "seed": 1, "vrf": "default", "source": "*",
//    "groupBase": "239.1.0.0", "acceptingVlan": [100, 101], "ports": ["Ethernet1", ...],
//    "portsPerSet": 4, "outputVlans": [200],
//    "frr": {"protected": "Ethernet3", "backups": ["Ethernet5.200"]}}
//
// The groups groupBase + 0 .. count-1 must all be multicast; diversity can be
// at most the number of distinct output sets the ports, ports per set and
// output VLANs allow.
#include <string>

#include "sim/Scenario.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class GeneratorReader {
 public:
  static constexpr std::uint64_t kMaxRoutesPerSet = 2'000'000;

  explicit GeneratorReader(ScenarioReader const& in) : in_(in) {}
  Scenario::RouteSet read(std::string name, JsonReader::Value const& v, std::string const& path) const;

 private:
  ScenarioReader const& in_;
};

}  // namespace FalSim
