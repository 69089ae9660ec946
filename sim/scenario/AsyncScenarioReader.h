#pragma once
// FalSim::AsyncScenarioReader: the fields of a scenario file that concern
// the flavour of the chips and the asynchronous ones, for ChipsReader and
// FaultReader, read with the checks of the file's ScenarioReader (a bad
// value ends in a FileError naming the file, the field and what was
// expected; a field given twice is refused with the rest of the file).
//
// In "chips":
//   "flavour": "sync" (the default) or "async": the flavour of every chip;
//   "otherFlavour": [1, 3]: chips that run the other flavour;
//   "transactionLatency": 0.002: seconds an asynchronous chip's transaction
//     takes (0 to 10; 0.001 by default);
//   "seed": 7: the seed of the asynchronous chips' failure draws.
// Kernel chips run the synchronous flavour only.
//
// In a "fault" event, instead of "table": "transaction": "group", "update" or
// "ingress" with "failNext": N (the next N transactions of that kind fail)
// and/or "probability": p (each fails with probability p from now on); a
// fault whose failNext and probability are both 0 ends the failures.
#include <string>

#include "sim/Scenario.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class AsyncScenarioReader {
 public:
  using Value = JsonReader::Value;

  explicit AsyncScenarioReader(ScenarioReader const& reader) : r_(reader) {}

  // Reads them from the chips object v at path into chips, whose count is known.
  void chips(Value const& v, std::string const& path, Scenario::Chips& chips) const;
  // Reads a transaction fault from the fault event v at path, of a scenario
  // with chips; false (and nothing read) when v names no transaction.
  bool transactionFault(Value const& v, std::string const& path, Scenario::Chips const& chips, Scenario::Fault& f) const;

 private:
  Scenario::Flavour flavour(Value const& v, std::string const& path) const;

  ScenarioReader const& r_;
};

}  // namespace FalSim
