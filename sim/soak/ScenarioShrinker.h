#pragma once
// FalSim::ScenarioShrinker: the shortest list of events that still fails,
// by delta debugging: the events are cut into n pieces and the scenario run
// without each piece in turn; a piece whose removal keeps the failure goes
// (and n shrinks by one), else the pieces are halved, down to single events.
// What is left fails, and fails no longer without any one of its events
// (unless the trial budget ran out first).
//
// Event times stay as they were; the scenario ends at its last event.
#include <cstddef>
#include <functional>

#include "sim/Scenario.h"

namespace FalSim {

class ScenarioShrinker {
 public:
  // Whether a scenario shows the failure.
  using Fails = std::function<bool(Scenario const&)>;

  struct Result {
    Scenario scenario;
    std::size_t trials = 0;
    bool budgetSpent = false;  // stopped at maxTrials, maybe before the shortest
  };

  // scenario must fail.
  static Result shrink(Scenario scenario, Fails const& fails, std::size_t maxTrials);
  // Paths "events[i]" after the list changed, and the end at the last event.
  static void renumber(Scenario& scenario);
};

}  // namespace FalSim
