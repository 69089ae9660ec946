#pragma once
// FalSim::ChipsReader: the "chips" section of a scenario file: how many
// chips, their table sizes, the virtual time a hardware operation costs and
// whether the Linux kernel backs them; the flavour of the library each runs
// and the asynchronous chips' transactions (AsyncScenarioReader).
//
//   "chips": {"count": 2, "routes": 16384, "boundaries": 1024,
//             "replicationEntries": 4096, "operationCost": 0.000001, "chip": "reference",
//             "flavour": "async", "otherFlavour": [1], "transactionLatency": 0.002, "seed": 7}
#include <string>

#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class ChipsReader {
 public:
  static constexpr std::uint32_t kMaxChips = 1024;

  explicit ChipsReader(ScenarioReader& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path);

 private:
  ScenarioReader& in_;
};

}  // namespace FalSim
