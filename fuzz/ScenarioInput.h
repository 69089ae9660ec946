#pragma once
// FalFuzz::ScenarioInput: a fuzz input read as a scenario file, for the
// targets that take scenarios.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/Scenario.h"

namespace FalFuzz {

class ScenarioInput {
 public:
  // The scenario the input holds; nothing when the loader refuses it with a
  // FileError, as it must refuse every bad file. Any other way out of the
  // loader is a finding.
  static std::optional<FalSim::Scenario> read(std::uint8_t const* data, std::size_t size);
  // The routes of all its route sets.
  static std::size_t routes(FalSim::Scenario const& scenario);
};

}  // namespace FalFuzz
