// A short run of whatever scenario the loader accepts: the agent, the route
// programmer and the reference chips go through its events, and every
// invariant must hold after every one. A broken invariant, a fatal assertion
// inside the library (it aborts), a sanitizer report or a crash is a finding.
// Traffic expectations are the input's own guesses and may fail.
//
// Runs are kept short: at most a few chips, events, routes and seconds of
// virtual time, and no kernel chip; anything larger is skipped.
#include <string>

#include "fuzz/FuzzTarget.h"
#include "fuzz/ScenarioInput.h"
#include "sim/SimRunner.h"

namespace {

bool shortEnough(FalSim::Scenario const& s) {
  std::uint64_t packets = 0;
  for (auto const& e : s.events) packets += e.traffic.packets;
  return !s.chips.kernel && s.chips.count <= 4 && s.events.size() <= 200 && FalFuzz::ScenarioInput::routes(s) <= 2000 &&
         packets <= 10000 && s.end <= 600 && s.chips.operationCost <= 0.01;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto scenario = FalFuzz::ScenarioInput::read(data, size);
  if (!scenario || !shortEnough(*scenario)) return 0;
  FalSim::SimRunner runner(std::move(*scenario));
  auto const& report = runner.run();
  if (report.violations > 0) {
    std::string detail = std::to_string(report.violations) + " violations";
    for (auto const& f : report.findings) detail += "\n  " + f;
    FalFuzz::finding("an invariant broke", detail);
  }
  return 0;
}
