#pragma once
// FalSim::RouteReader: one explicit route of a scenario file, in a route set
// or an "addRoute" event.
//
//   {"vrf": "default", "source": "10.0.0.1", "group": "239.1.1.1",
//    "acceptingVlan": 100, "outputs": ["Ethernet3.200", "Ethernet4.200"],
//    "frr": {"protected": "Ethernet3", "backups": ["Ethernet5.200"]},
//    "toCpu": false, "fastdrop": false, "noRpf": false, "bridge": false, "rpaId": 0}
//
// A noRpf route has no accepting VLAN; a bridge (boundary) entry has one but
// neither outputs nor fast reroute. The RPA index 65534 is the one the
// library holds as invalid (it would never program the route), so it is
// refused; 65535 means the route has none, as when the field is absent.
#include <cstdint>
#include <string>

#include "platform/mroutelib/DesiredRoute.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class RouteReader {
 public:
  static constexpr std::uint16_t kRpaIdInvalid = 0xFFFE;

  explicit RouteReader(ScenarioReader const& in) : in_(in) {}
  MrouteLib::DesiredRoute read(JsonReader::Value const& v, std::string const& path) const;

 private:
  void frr(JsonReader::Value const& f, std::string const& path, MrouteLib::PortVlanSet& outputs) const;

  ScenarioReader const& in_;
};

}  // namespace FalSim
