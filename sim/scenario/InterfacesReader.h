#pragma once
// FalSim::InterfacesReader: the "interfaces" section of a scenario file: the
// Ethernet ports (a count, Ethernet1..N, or a list of names) and the VLANs
// every other section may name.
//
//   "interfaces": {"ethernet": 24, "vlans": [100, 200]}
#include <string>

#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

class InterfacesReader {
 public:
  static constexpr std::uint32_t kMaxEthernet = 4096;

  explicit InterfacesReader(ScenarioReader& in) : in_(in) {}
  void read(JsonReader::Value const& v, std::string const& path);

 private:
  ScenarioReader& in_;
};

}  // namespace FalSim
