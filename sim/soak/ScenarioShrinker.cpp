#include "sim/soak/ScenarioShrinker.h"

#include <algorithm>

namespace FalSim {

void ScenarioShrinker::renumber(Scenario& s) {
  for (std::size_t i = 0; i < s.events.size(); ++i) s.events[i].path = "events[" + std::to_string(i) + "]";
  s.end = s.events.empty() ? 0 : s.events.back().at;
}

ScenarioShrinker::Result ScenarioShrinker::shrink(Scenario scenario, Fails const& fails, std::size_t maxTrials) {
  Result r;
  renumber(scenario);
  std::vector<Scenario::Event> events = std::move(scenario.events);
  auto without = [&](std::size_t begin, std::size_t end) {
    Scenario candidate = scenario;
    candidate.events.reserve(events.size() - (end - begin));
    for (std::size_t i = 0; i < events.size(); ++i) {
      if (i < begin || i >= end) candidate.events.push_back(events[i]);
    }
    renumber(candidate);
    return candidate;
  };
  std::size_t n = 2;
  while (events.size() >= 2) {
    std::size_t const piece = (events.size() + n - 1) / n;
    bool reduced = false;
    for (std::size_t begin = 0; begin < events.size() && !reduced; begin += piece) {
      if (r.trials >= maxTrials) {
        r.budgetSpent = true;
        break;
      }
      Scenario candidate = without(begin, std::min(begin + piece, events.size()));
      ++r.trials;
      if (fails(candidate)) {
        events = std::move(candidate.events);
        n = std::max<std::size_t>(n - 1, 2);
        reduced = true;
      }
    }
    if (r.budgetSpent) break;
    if (!reduced) {
      if (n >= events.size()) break;
      n = std::min(n * 2, events.size());
    }
  }
  scenario.events = std::move(events);
  renumber(scenario);
  r.scenario = std::move(scenario);
  return r;
}

}  // namespace FalSim
