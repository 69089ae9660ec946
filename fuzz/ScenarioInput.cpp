#include "fuzz/ScenarioInput.h"

#include <string_view>

#include "fuzz/FuzzTarget.h"
#include "sim/ScenarioLoader.h"

namespace FalFuzz {

std::optional<FalSim::Scenario> ScenarioInput::read(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  try {
    return FalSim::ScenarioLoader::parse(text, "fuzz.json");
  } catch (FalSim::FileError const&) {
    return std::nullopt;
  } catch (std::exception const& e) {
    finding("the loader let another exception escape", e.what());
  }
}

std::size_t ScenarioInput::routes(FalSim::Scenario const& scenario) {
  std::size_t n = 0;
  for (auto const& rs : scenario.routeSets) n += rs.routes.size();
  return n;
}

}  // namespace FalFuzz
