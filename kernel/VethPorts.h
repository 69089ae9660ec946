#pragma once
// FalKernel::VethPorts: the devices of a kernel chip in a namespace of its
// own: a veth pair per (port, VLAN) output and per (VRF, VLAN) input, made on
// first use through rtnetlink (libnl-route-3), both ends up, both in the
// namespace.
//
// Naming (at most 15 bytes, as device names must be):
//   output EthernetP VLAN V:  router end "outPvV", capture end "capPvV"
//   output EthernetP untagged: "outP" / "capP"
//   input of VRF id F, VLAN V: router end "inFvV", send end "srcFvV"
// The chip programs the router ends; packets are injected into the send end
// of an input and captured on the capture ends of the outputs (PacketProbe).
// A VLAN is a device of its own, so no 802.1Q tagging is involved.
//
// An input of a VRF other than 0 gets a multicast routing rule (IPv4 and
// IPv6: "mrule iif inFvV lookup <its table>") so that the kernel looks its
// packets up in the VRF's table; VRF 0 uses the default table.
//
// The namespace is set up for routing packets from any source: reverse-path
// filtering off. Removing everything is the namespace's part when it is the
// chip's own (KernelNetns): the devices and rules go with it. In an existing
// namespace that outlives the chip, the destructor removes the devices and
// rules it made.
#include <netlink/netlink.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "kernel/KernelNetns.h"
#include "kernel/KernelPortMap.h"

namespace FalKernel {

class VethPorts final : public KernelPortMap {
 public:
  struct Link {
    std::string name;      // the router end
    int ifindex = 0;
    std::string peerName;  // the send or capture end
    int peerIfindex = 0;
  };

  // Throws std::system_error when the namespace's routing socket or sysctls
  // cannot be set up.
  explicit VethPorts(KernelNetns const& netns);
  ~VethPorts() override;
  VethPorts(VethPorts const&) = delete;
  VethPorts& operator=(VethPorts const&) = delete;

  static std::string outputName(MrouteLib::PortVlan output);
  static std::string inputName(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan);

  // KernelPortMap. A device that cannot be made is traced with the netlink
  // error and answered 0.
  int outputIfindex(MrouteLib::PortVlan output) override;
  int inputIfindex(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) override;
  int openSocket(int domain, int type, int protocol) override;

  // The links made so far; null when not made.
  Link const* output(MrouteLib::PortVlan output) const;
  Link const* input(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) const;
  std::map<MrouteLib::PortVlan, Link> const& outputs() const { return outputs_; }
  // The output whose capture end is peerIfindex.
  std::optional<MrouteLib::PortVlan> outputOfPeer(int peerIfindex) const;

  // Takes every output link of port down (a failed port) or up again; its
  // copies are then lost on the wire. False when netlink refused.
  bool portOperIs(Netcore::IntfId port, bool up);

  KernelNetns const& netns() const { return netns_; }

 private:
  // Makes the pair with both ends up; nullopt (traced) on failure.
  std::optional<Link> makePair(std::string const& name, std::string const& peerName);
  // Adds (or deletes) the IPv4 and IPv6 multicast rules sending packets from
  // iif to the VRF's tables.
  bool rulesIs(std::string const& iif, std::uint16_t vrfId, bool add = true);
  void removeAll();
  bool linkUpIs(int ifindex, bool up);
  // Waits, a bounded time, until the kernel reports the device operational.
  bool operUpWait(int ifindex);

  KernelNetns const& netns_;  // not owned: outlives the ports
  nl_sock* sock_ = nullptr;
  std::map<MrouteLib::PortVlan, Link> outputs_;
  std::map<std::pair<std::uint16_t, std::uint16_t>, Link> inputs_;
};

}  // namespace FalKernel
