#pragma once
// FalAgent::AgentConfig: what mroute-agent runs, from its configuration
// file (AgentConfigLoader): the namespace whose kernel multicast tables it
// mirrors and how they map onto the platform, the chips it programs, and the
// library's settings. A plain, checked value.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kernel/netlink/SourceMap.h"
#include "platform/fib/CounterMode.h"
#include "platform/types/VrfId.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Types.h"
#include "sim/ReferenceChip.h"

namespace FalAgent {

struct AgentConfig {
  struct Vrf {
    L3::VrfName name;
    Fal::VrfId id = 0;
    // The kernel tables mirrored into it; none: that family is not mirrored.
    std::optional<std::uint32_t> ipv4Table;
    std::optional<std::uint32_t> ipv6Table;
    friend bool operator==(Vrf const&, Vrf const&) = default;
  };

  struct Chip {
    // reference: a software model of the chip's tables; kernel: the Linux
    // kernel's multicast forwarding as well, real packets through real
    // devices (the reference chip stays the model the library is checked on).
    enum class Backend : std::uint8_t { reference, kernel };
    std::string name;
    Backend backend = Backend::reference;
    // kernel: an existing namespace for its devices (to reach them from
    // outside); empty: a namespace of its own, gone with the agent.
    std::string netns;
    FalSim::ReferenceChipCapacity capacity;
    friend bool operator==(Chip const& a, Chip const& b) {
      return a.name == b.name && a.backend == b.backend && a.netns == b.netns && a.capacity.routes == b.capacity.routes &&
             a.capacity.boundaries == b.capacity.boundaries &&
             a.capacity.replicationEntries == b.capacity.replicationEntries;
    }
  };

  // The kernel's default multicast tables.
  static constexpr std::uint32_t kDefaultIpv4Table = 253;
  static constexpr std::uint32_t kDefaultIpv6Table = 254;

  std::string file;  // where it was read from
  std::string sourceNamespace;  // empty: the agent's own
  int receiveBuffer = 16 << 20;  // bytes, of the notification socket
  std::vector<Vrf> vrfs;
  // Kernel interface names and the platform outputs they stand for.
  FalKernel::SourceMap::InterfaceColl interfaces;
  std::vector<Chip> chips;
  bool zombiesEnabled = true;
  Vex::Seconds zombieLifetime = 4.0;
  std::uint8_t activityPollingInterval = 10;
  Routing::Multicast::Fib::CounterMode counterMode = Routing::Multicast::Fib::CounterMode::packets;
  bool allCounter = false;
  bool countRoutes = false;  // a counter for every mirrored route (with allCounter only)
  // The base name B the counter status is published under, in shared memory
  // (B.counterStatus), for mroute-counters; empty: mroute-agent-<pid>.
  std::string countersPublishedAs;
  Vex::Seconds statusInterval = 5.0;

  // The tables and interfaces, as the kernel FIB source takes them.
  FalKernel::SourceMap sourceMap() const;
  // The base name the counters are published under for process pid.
  std::string countersBase(int pid) const {
    return countersPublishedAs.empty() ? "mroute-agent-" + std::to_string(pid) : countersPublishedAs;
  }
  // Fields whose change takes a restart (source, VRFs, chips, the counters'
  // name), by name, in
  // the order of the file; empty when other can be applied to a running agent.
  std::vector<std::string> restartNeeded(AgentConfig const& other) const;
};

}  // namespace FalAgent
