#pragma once
// FalSim::FaultReader: a "fault" event of a scenario file: a chip (or every
// chip) refuses the next allocations in one of its tables, or answers full
// until told otherwise; or an asynchronous chip's transactions of one kind
// fail (AsyncScenarioReader).
//
//   {"at": 6, "do": "fault", "chip": 0, "table": "replication", "failNext": 2}
//   {"at": 7, "do": "fault", "table": "route", "forceFull": true}
//   {"at": 8, "do": "fault", "chip": 1, "transaction": "ingress", "probability": 0.2}
#include <string>

#include "sim/Scenario.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class FaultReader {
 public:
  explicit FaultReader(ScenarioReader const& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path, Scenario::Fault& f) const;

 private:
  ScenarioReader const& in_;
};

}  // namespace FalSim
