#pragma once
// FalSim::TrafficReader: a "traffic" event of a scenario file: packets sent
// into the chips, and what must become of them.
//
// One flow:
//   {"at": 2, "do": "traffic", "vrf": "default", "source": "10.0.0.1", "group": "239.1.1.1",
//    "vlan": 100, "packets": 1, "bytes": 64, "chip": 0, "expect": ["Ethernet3.200"]}
// or one flow per route of a set, each on the route's accepting VLAN:
//   {"at": 2, "do": "traffic", "set": "channels", "source": "10.0.0.9", "expectForwarded": true}
//
// Expectations, checked on every packet and every chip it is sent to:
// "expect" (the copies, in any order; [] is forwarded to no port),
// "expectForwarded": true, or "expectDropped" with the reason the chip must
// give: "noRoute" (no route covers the flow), "rpfFail" (it arrived on
// another VLAN than the route accepts), "boundary" (a boundary entry stops
// it) or "noEntry" (the route is in the table but replicates through no
// written entry yet: an asynchronous chip's group or binding still to
// complete, or failed). A packet arriving untagged leaves "vlan" out; a set's "source" must be
// of the family of the set's routes.
#include <string>

#include "sim/Scenario.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class TrafficReader {
 public:
  explicit TrafficReader(ScenarioReader const& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path, Scenario::Traffic& t) const;

 private:
  void flowOfSet(JsonReader::Value const& v, std::string const& path, Scenario::Traffic& t) const;
  void oneFlow(JsonReader::Value const& v, std::string const& path, Scenario::Traffic& t) const;
  void expectations(JsonReader::Value const& v, std::string const& path, Scenario::Traffic& t) const;

  ScenarioReader const& in_;
};

}  // namespace FalSim
