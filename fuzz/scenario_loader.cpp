// The scenario loader: any text given as a scenario file is read into a
// scenario or refused with a FileError; nothing else may come out of it
// (another exception, a fatal assertion, a sanitizer report, a crash).
//
// What it accepts must also survive being written out: the file
// ScenarioWriter makes of it reads back, and writing that once more gives the
// same text. A large generated set is not written (a scenario of a million
// routes says nothing more and only slows the fuzzer down).
#include <string>

#include "fuzz/FuzzTarget.h"
#include "fuzz/ScenarioInput.h"
#include "sim/ScenarioLoader.h"
#include "sim/scenario/ScenarioWriter.h"

namespace {

constexpr std::size_t kMostRoutesWritten = 5000;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  auto const scenario = FalFuzz::ScenarioInput::read(data, size);
  if (!scenario || FalFuzz::ScenarioInput::routes(*scenario) > kMostRoutesWritten) return 0;
  std::string const written = FalSim::ScenarioWriter::text(*scenario);
  std::string again;
  try {
    again = FalSim::ScenarioWriter::text(FalSim::ScenarioLoader::parse(written, "written.json"));
  } catch (std::exception const& e) {
    FalFuzz::finding("a written scenario does not read back", std::string(e.what()) + "\n" + written);
  }
  if (again != written) FalFuzz::finding("a written scenario reads back into another", written + "\n----\n" + again);
  return 0;
}
