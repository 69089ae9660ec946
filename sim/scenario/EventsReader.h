#pragma once
// FalSim::EventsReader: the "events" section of a scenario file: what
// happens, when, in time order.
//
//   {"at": 1, "do": "addRoutes", "set": "channels", "count": 100}   (or "removeRoutes")
//   {"at": 1, "do": "addRoute", "route": {...}}                     (RouteReader)
//   {"at": 1, "do": "removeRoute", "vrf": "default", "source": "*", "group": "239.1.1.1"}
//   {"at": 3, "do": "interfaceDown", "interface": "Ethernet3"}      (or "interfaceUp")
//   {"at": 2, "do": "traffic", ...}                                 (TrafficReader)
//   {"at": 5, "do": "config", ...}                                  (ConfigReader)
//   {"at": 6, "do": "fault", ...}                                   (FaultReader)
//   {"at": 7, "do": "restart"}
//
// Times are seconds of virtual time, each at or after the one before.
#include <string>

#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class EventsReader {
 public:
  explicit EventsReader(ScenarioReader& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path);

 private:
  Scenario::Event event(JsonReader::Value const& v, std::string const& path, Vex::Seconds previous, bool first) const;

  ScenarioReader& in_;
};

}  // namespace FalSim
