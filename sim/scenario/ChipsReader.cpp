#include "sim/scenario/ChipsReader.h"

#include "sim/scenario/AsyncScenarioReader.h"

namespace FalSim {

void ChipsReader::read(JsonReader::Value const& v, std::string const& path) {
  auto& chips = in_.scenario().chips;
  in_.object(v, path);
  in_.knownFields(v, path, {"count", "routes", "boundaries", "replicationEntries", "operationCost", "chip", "flavour",
                            "otherFlavour", "transactionLatency", "seed"});
  if (auto const* c = in_.member(v, "chip")) {
    char const* const what = "one of \"reference\", \"kernel\"";
    std::string const kind = in_.string(*c, JsonReader::child(path, "chip"), what);
    if (kind != "reference" && kind != "kernel") in_.fail(JsonReader::child(path, "chip"), what, c);
    chips.kernel = kind == "kernel";
  }
  if (auto const* c = in_.member(v, "count")) {
    chips.count = static_cast<std::uint32_t>(in_.integer(*c, JsonReader::child(path, "count"),
                                                         "a chip count from 1 to " + std::to_string(kMaxChips), 1, kMaxChips));
  }
  if (auto const* c = in_.member(v, "routes")) chips.capacity.routes = in_.tableSize(*c, JsonReader::child(path, "routes"));
  if (auto const* c = in_.member(v, "boundaries")) {
    chips.capacity.boundaries = in_.tableSize(*c, JsonReader::child(path, "boundaries"));
  }
  if (auto const* c = in_.member(v, "replicationEntries")) {
    chips.capacity.replicationEntries = in_.tableSize(*c, JsonReader::child(path, "replicationEntries"));
  }
  if (auto const* c = in_.member(v, "operationCost")) {
    chips.operationCost = in_.number(*c, JsonReader::child(path, "operationCost"), "a cost in seconds from 0 to 1", 0, 1);
  }
  AsyncScenarioReader(in_).chips(v, path, chips);
}

}  // namespace FalSim
