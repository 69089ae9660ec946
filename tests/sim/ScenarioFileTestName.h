#pragma once
// The test name of a scenario file: its base name without the extension,
// dashes made underscores ("examples/async-iptv.json" -> "async_iptv").
#include <algorithm>
#include <string>

namespace SimTest {

inline std::string scenarioFileTestName(std::string path) {
  path = path.substr(path.rfind('/') + 1);
  path = path.substr(0, path.find('.'));
  std::replace(path.begin(), path.end(), '-', '_');
  return path;
}

}  // namespace SimTest
