// The main of a fuzz target outside a fuzzing build: every file given, and
// every file in every folder given, goes once through the target.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/FuzzTarget.h"

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path const p(argv[i]);
    if (std::filesystem::is_directory(p)) {
      for (auto const& e : std::filesystem::directory_iterator(p)) {
        if (e.is_regular_file()) inputs.push_back(e.path());
      }
    } else {
      inputs.push_back(p);
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "usage: %s FILE|FOLDER...\n", argv[0]);
    return 2;
  }
  for (auto const& p : inputs) {
    std::ifstream in(p, std::ios::binary);
    std::string const data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(data.data()), data.size());
  }
  std::printf("%zu inputs, no finding\n", inputs.size());
  return 0;
}
