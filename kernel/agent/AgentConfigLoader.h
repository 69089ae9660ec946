#pragma once
// FalAgent::AgentConfigLoader: reads mroute-agent's configuration file
// (JSON) into a checked AgentConfig, or says exactly what is wrong with it
// (FalSim::FileError: the file, the field as a JSON path, what was expected).
// Unknown fields are errors.
//
// The format, by example (every section but "interfaces" may be omitted):
//
//   {
//     "source": {"namespace": "fal-src", "receiveBuffer": 16777216},
//     "vrfs": [{"name": "default", "id": 0, "ipv4Table": 253, "ipv6Table": 254}],
//     "interfaces": [
//       {"name": "src-in", "port": "Ethernet1", "vlan": 100},
//       {"name": "src-out1", "port": "Ethernet2", "vlan": 200, "frrBackups": ["Ethernet4.200"]}],
//     "chips": [{"name": "chip0", "flavour": "sync", "backend": "reference",
//                "routes": 16384, "boundaries": 1024, "replicationEntries": 4096},
//               {"name": "chip1", "backend": "kernel", "namespace": "fal-chip"}],
//     "zombies": {"enabled": true, "lifetime": 4.0},
//     "aging": {"activityPollingInterval": 10},
//     "counters": {"mode": "packets", "all": false, "routes": false, "publish": "agent1"},
//     "status": {"interval": 5}
//   }
//
// Without "vrfs", the kernel's default tables (IPv4 253, IPv6 254) are the
// VRF "default" (id 0); without "chips", one reference chip. Each VRF names
// at most one table per family, a table belongs to one VRF, an interface
// name and a (port, VLAN) output appear once.
#include <string>
#include <string_view>

#include "kernel/agent/AgentConfig.h"
#include "sim/FileError.h"

namespace FalAgent {

class AgentConfigLoader {
 public:
  static AgentConfig load(std::string const& path);
  static AgentConfig parse(std::string_view text, std::string const& fileName);
};

}  // namespace FalAgent
