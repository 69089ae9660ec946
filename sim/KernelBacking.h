#pragma once
// FalSim::KernelBacking: the Linux kernel behind the chips of a scenario
// whose chips are "kernel": per chip a network namespace of its own
// (KernelNetns), its veth pairs (VethPorts), a FalKernel::KernelChip for its
// switchId and a PacketProbe for real packets.
//
// The reference chips stay the simulator's model of the chips: the library
// programs both through KernelChipLink, the reference chip keeps the indexes
// and handles the library sees (so the invariant checker reads it as ever),
// and this object keeps the kernel chip's own for each of them. It outlives
// the agent incarnations like the chips do; a new incarnation starts on a
// clean kernel chip, as it does on clean reference chips.
//
// Traffic: send() writes real UDP multicast packets into the input device of
// the flow's VRF and VLAN; check() collects where their copies came out and
// compares each packet's with what the reference chip predicted for it.
//
// Everything is removed when this object is destroyed, and by the kernel when
// the process ends any other way (the namespaces are anonymous).
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "absl/container/flat_hash_set.h"
#include "kernel/KernelChip.h"
#include "kernel/KernelNetns.h"
#include "kernel/PacketProbe.h"
#include "kernel/VethPorts.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/IpGenAddr.h"

namespace FalSim {

class KernelBacking {
 public:
  // One chip on the kernel.
  struct Chip {
    // In a namespace of its own, or in the existing one named netnsName.
    explicit Chip(std::uint32_t switchId, std::string const& netnsName = {});
    FalKernel::KernelNetns netns;
    FalKernel::VethPorts ports{netns};
    FalKernel::PacketProbe probe{netns};
    Vex::Ptr<FalKernel::KernelChip> chip;
    // The kernel chip's index and handle for each of the reference chip's.
    absl::flat_hash_map<std::uint32_t, std::uint32_t> index;
    absl::flat_hash_map<std::uint32_t, MrouteLib::RouteHandle> handle;
  };

  // What the real packets did, over the run.
  struct Figures {
    std::uint64_t packetsSent = 0;
    std::uint64_t sendErrors = 0;
    std::uint64_t copiesPredicted = 0;
    std::uint64_t copiesCaptured = 0;
    std::uint64_t packetsAsPredicted = 0;
    std::uint64_t packetsNotAsPredicted = 0;
    std::uint64_t kernelRefusals = 0;  // allocations the reference chip made and the kernel refused
  };

  // Where a chip is: on the kernel, in a namespace of its own or in an
  // existing named one, or not on the kernel (only on the reference chip).
  struct Placement {
    bool kernel = true;
    std::string netns;
  };

  // Throws std::system_error when a namespace cannot be made (or opened).
  // Every chip on the kernel, each in a namespace of its own:
  explicit KernelBacking(std::uint32_t chips);
  explicit KernelBacking(std::vector<Placement> const& chips);
  ~KernelBacking();
  KernelBacking(KernelBacking const&) = delete;
  KernelBacking& operator=(KernelBacking const&) = delete;

  // Chips numbered from 0, those on the kernel and the others.
  std::uint32_t chips() const { return static_cast<std::uint32_t>(chips_.size()); }
  // The chip on the kernel, or null (not on the kernel, or no such chip).
  Chip* chip(std::uint32_t switchId) { return switchId < chips_.size() ? chips_[switchId].get() : nullptr; }
  // Drops whatever an earlier agent incarnation left in the kernel chips.
  void clearStale();
  // Takes a port's output devices down (a failed interface) or up again.
  void portOperIs(Netcore::IntfId port, bool up);

  // One real packet of a flow, and the copies the reference chip predicts
  // (those on a port taken down are not expected: the wire drops them).
  void send(std::uint32_t switchId, std::uint16_t vrfId, Bridging::VlanIdOrNone vlan, Netcore::IpGenAddr const& source,
            Netcore::IpGenAddr const& group, std::vector<MrouteLib::PortVlan> predicted, std::string flow);
  // Collects the copies of every packet sent since the last check; one line
  // per packet whose copies differ from the prediction.
  std::vector<std::string> check();

  Figures const& figures() const { return figures_; }
  Figures& figures() { return figures_; }

 private:
  struct Sent {
    std::uint32_t switchId;
    std::uint64_t token;
    std::vector<MrouteLib::PortVlan> predicted;
    std::string flow;
  };

  std::vector<std::unique_ptr<Chip>> chips_;
  // Ports taken down: a copy predicted there cannot arrive.
  absl::flat_hash_set<Netcore::IntfId> down_;
  std::vector<Sent> pending_;
  std::uint64_t nextToken_ = 1;
  Figures figures_;
};

}  // namespace FalSim
