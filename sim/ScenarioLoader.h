#pragma once
// FalSim::ScenarioLoader: reads a scenario file (JSON) into a checked
// Scenario, or says exactly what is wrong with it.
//
// Every value is checked for its type and range before it is used, so no
// input can trip an assertion: a bad file always ends in a ScenarioError
// naming the file, the field as a JSON path and what was expected there.
// Unknown fields are errors too (a misspelt field would otherwise be ignored
// silently), and so are fields given twice. Names are resolved here: VRFs,
// VLANs (accepting, output and backup alike) and ports must be declared in
// the scenario, route sets named by events must exist, events must be in
// time order. Each section has its reader (sim/scenario/), over the checked
// reading every tool's file shares (JsonReader).
//
// The file format, by example (every field but "events" may be omitted):
//
//   {
//     "name": "iptv", "description": "...",
//     "chips": {"count": 2, "routes": 16384, "boundaries": 1024,
//               "replicationEntries": 4096, "operationCost": 0.000001},
//     "interfaces": {"ethernet": 24, "vlans": [100, 200]},
//     "vrfs": [{"name": "default", "id": 0}],
//     "zombies": {"enabled": true, "lifetime": 4.0},
//     "aging": {"activityPollingInterval": 10},
//     "counters": {"all": true, "mode": "packets"},
//     "routeSets": [
//       {"name": "static", "routes": [
//         {"vrf": "default", "source": "10.0.0.1", "group": "239.1.1.1",
//          "acceptingVlan": 100, "outputs": ["Ethernet3.200", "Ethernet4.200"],
//          "frr": {"protected": "Ethernet3", "backups": ["Ethernet5.200"]},
//          "toCpu": false, "fastdrop": false, "noRpf": false, "bridge": false, "rpaId": 0}]},
//       {"name": "channels", "generate": {"count": 2000, "diversity": 8, "seed": 1,
//          "source": "*", "groupBase": "239.1.0.0", "acceptingVlan": 100,
//          "portsPerSet": 4, "outputVlans": [200]}}],
//     "events": [
//       {"at": 1, "do": "addRoutes", "set": "channels"},
//       {"at": 2, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 100,
//        "expect": ["Ethernet3.200", "Ethernet4.200"]},
//       {"at": 2, "do": "traffic", "set": "channels", "source": "10.0.0.9", "expectForwarded": true},
//       {"at": 2, "do": "traffic", "source": "10.0.0.1", "group": "239.1.1.1", "vlan": 200,
//        "expectDropped": "rpfFail"},
//       {"at": 3, "do": "interfaceDown", "interface": "Ethernet3"},
//       {"at": 4, "do": "removeRoutes", "set": "channels", "count": 100},
//       {"at": 5, "do": "config", "zombies": false, "capacity": {"replicationEntries": 8192}},
//       {"at": 6, "do": "fault", "chip": 0, "table": "replication", "failNext": 2},
//       {"at": 7, "do": "restart"}],
//     "end": 20
//   }
//
// The chips' flavour ("flavour", "otherFlavour"), the asynchronous chips'
// transactions ("transactionLatency", "seed") and transaction faults are
// described in sim/scenario/AsyncScenarioReader.h.
//
// Traffic for a set sends one flow per route, on its accepting VLAN, from the
// event's "source" for each route whose source prefix holds it, else from an
// address the route's source prefix holds. A capacity change leaves the sizes
// it does not name as the chip has them.
#include <string>
#include <string_view>

#include "sim/Scenario.h"
#include "sim/ScenarioError.h"

namespace FalSim {

class ScenarioLoader {
 public:
  // Reads and checks the file at path; the error names the file as given.
  static Scenario load(std::string const& path);
  // Checks text as the contents of a file called fileName.
  static Scenario parse(std::string_view text, std::string const& fileName);
};

}  // namespace FalSim
