#include "sim/scenario/FaultReader.h"

#include "sim/scenario/AsyncScenarioReader.h"

namespace FalSim {

void FaultReader::read(JsonReader::Value const& v, std::string const& path, Scenario::Fault& f) const {
  auto const child = JsonReader::child;
  in_.knownFields(v, path, {"at", "do", "chip", "table", "failNext", "forceFull", "transaction", "probability"});
  if (auto const* c = in_.member(v, "chip")) f.chip = in_.chipNumber(*c, child(path, "chip"));
  if (AsyncScenarioReader(in_).transactionFault(v, path, in_.scenario().chips, f)) return;
  f.table = in_.table(in_.required(v, path, "table", "one of \"route\", \"boundary\", \"replication\""), child(path, "table"));
  if (auto const* n = in_.member(v, "failNext")) {
    f.failNext = static_cast<std::uint32_t>(
        in_.integer(*n, child(path, "failNext"), "a number of allocations to refuse, 0 to 1000000", 0, 1'000'000));
  }
  if (auto const* full = in_.member(v, "forceFull")) f.forceFull = in_.boolean(*full, child(path, "forceFull"));
  if (!f.failNext && !f.forceFull) in_.failWith(path, "\"failNext\" or \"forceFull\"", "neither");
}

}  // namespace FalSim
