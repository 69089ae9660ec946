// The scenario loader: any text given as a scenario file is read into a
// scenario or refused with a FileError; nothing else may come out of it
// (another exception, a fatal assertion, a sanitizer report, a crash).
//
// What it accepts must also survive being written out: the file
// ScenarioWriter makes of it reads back, and writing that once more gives the
// same text. A large generated set is not written (a scenario of a million
// routes says nothing more and only slows the fuzzer down).
#include <string>
#include <string_view>

#include "fuzz/FuzzTarget.h"
#include "sim/ScenarioLoader.h"
#include "sim/scenario/ScenarioWriter.h"

namespace {

constexpr std::size_t kMostRoutesWritten = 5000;

std::size_t routes(FalSim::Scenario const& s) {
  std::size_t n = 0;
  for (auto const& rs : s.routeSets) n += rs.routes.size();
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(data), size);
  FalSim::Scenario scenario;
  try {
    scenario = FalSim::ScenarioLoader::parse(text, "fuzz.json");
  } catch (FalSim::FileError const&) {
    return 0;
  } catch (std::exception const& e) {
    FalFuzz::finding("the loader let another exception escape", e.what());
  }
  if (routes(scenario) > kMostRoutesWritten) return 0;
  std::string const written = FalSim::ScenarioWriter::text(scenario);
  std::string again;
  try {
    again = FalSim::ScenarioWriter::text(FalSim::ScenarioLoader::parse(written, "written.json"));
  } catch (std::exception const& e) {
    FalFuzz::finding("a written scenario does not read back", std::string(e.what()) + "\n" + written);
  }
  if (again != written) FalFuzz::finding("a written scenario reads back into another", written + "\n----\n" + again);
  return 0;
}
