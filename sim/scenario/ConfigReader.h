#pragma once
// FalSim::ConfigReader: a "config" event of a scenario file: settings the
// agent's owner changes at run time. Fields absent stay as they are; at
// least one must be given.
//
//   {"at": 5, "do": "config", "zombies": false, "zombieLifetime": 2.0,
//    "activityPollingInterval": 5, "allCounter": true, "counterMode": "bytes",
//    "counterRoutes": [{"vrf": "default", "source": "10.0.0.1", "group": "239.1.1.1"}],
//    "capacity": {"chip": 0, "routes": 100, "boundaries": 10, "replicationEntries": 50}}
//
// A capacity change applies to one chip, or to every chip when "chip" is
// absent, and leaves the table sizes it does not name as they are.
#include <string>

#include "sim/Scenario.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class ConfigReader {
 public:
  explicit ConfigReader(ScenarioReader const& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path, Scenario::Config& c) const;

 private:
  void counterRoutes(JsonReader::Value const& v, std::string const& path, Scenario::Config& c) const;
  void capacity(JsonReader::Value const& v, std::string const& path, Scenario::Config& c) const;

  ScenarioReader const& in_;
};

}  // namespace FalSim
