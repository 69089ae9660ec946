#pragma once
// FalKernel::KernelPortMap: what the kernel chip needs to know of the host it
// programs: which network device carries each (port, VLAN) output, on which
// device the traffic of a routing table arrives on a VLAN, and how to open a
// socket in the network namespace those devices live in.
//
// Implemented by: a chip agent (front-panel ports to netdevs), and VethPorts,
// which makes a veth pair per output and per input in a namespace of its own
// on first use.
//
// A device is named by its ifindex; 0 means "no such device", and the chip
// refuses what would need it.
#include <cstdint>

#include "platform/mroutelib/PortVlan.h"
#include "platform/types/VlanIdOrNone.h"

namespace FalKernel {

class KernelPortMap {
 public:
  virtual ~KernelPortMap() = default;

  // The device that copies for output leave through.
  virtual int outputIfindex(MrouteLib::PortVlan output) = 0;
  // The device on which packets of VRF vrfId arrive on vlan. Packets
  // arriving on it must be looked up in the VRF's table (mrouteTableOf).
  virtual int inputIfindex(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) = 0;
  // A socket in the devices' network namespace; -1 with errno set on failure.
  virtual int openSocket(int domain, int type, int protocol) = 0;
};

}  // namespace FalKernel
