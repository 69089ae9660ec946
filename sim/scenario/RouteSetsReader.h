#pragma once
// FalSim::RouteSetsReader: the "routeSets" section of a scenario file: named
// sets of routes, each listed ("routes", RouteReader) or generated
// ("generate", GeneratorReader), that events add and remove as a whole.
//
//   "routeSets": [{"name": "static", "routes": [{...}, ...]},
//                 {"name": "channels", "generate": {...}}]
//
// Names are unique; a route (VRF and key) appears at most once in a set.
#include <string>

#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class RouteSetsReader {
 public:
  explicit RouteSetsReader(ScenarioReader& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path);

 private:
  Scenario::RouteSet listed(std::string name, JsonReader::Value const& routes, std::string const& path) const;

  ScenarioReader& in_;
};

}  // namespace FalSim
