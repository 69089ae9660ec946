#pragma once
// FalKernel::MrouteSocket: one multicast routing socket of the Linux kernel,
// bound to one multicast routing table of one address family.
//
// The kernel keeps, per network namespace, multicast routing tables (one per
// VRF here), each with its own virtual interfaces (VIFs, at most kMaxVifs)
// and its own multicast forwarding cache (MFC: entries keyed by source and
// group, each with an incoming VIF and the set of VIFs it replicates to). A
// table is programmed only through the one socket that started routing on it
// (MRT_INIT after MRT_TABLE); closing that socket flushes the table's VIFs
// and entries, so whatever this object programmed dies with it.
//
// IPv4 uses MRT_* on a raw IGMP socket, IPv6 MRT6_* on a raw ICMPv6 socket;
// this class hides the difference. A (*,G) entry has the all-zero source.
// Every operation returns 0 or the errno the kernel gave; nothing throws.
//
// The socket descriptor is opened by the caller (in the network namespace
// the table belongs to) and owned from then on.
#include <bitset>
#include <cstdint>

#include "platform/net/AddressFamily.h"
#include "platform/net/IpGenAddr.h"

namespace FalKernel {

class MrouteSocket {
 public:
  static constexpr int kMaxVifs = 32;
  using VifSet = std::bitset<kMaxVifs>;

  // What one entry matched: packets and bytes, those that arrived on another
  // interface than its incoming one (and were dropped) included.
  struct Counts {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    std::uint64_t wrongIf = 0;
    std::uint64_t forwarded() const { return packets - wrongIf; }
  };

  // The socket type to open for af: {domain, type, protocol}.
  struct SocketType {
    int domain;
    int type;
    int protocol;
  };
  static SocketType socketType(Netcore::AddressFamily af);

  // Takes fd (opened with socketType(af); -1 makes every call fail with EBADF).
  MrouteSocket(Netcore::AddressFamily af, std::uint32_t table, int fd);
  ~MrouteSocket();
  MrouteSocket(MrouteSocket const&) = delete;
  MrouteSocket& operator=(MrouteSocket const&) = delete;

  Netcore::AddressFamily af() const { return af_; }
  std::uint32_t table() const { return table_; }
  int fd() const { return fd_; }

  // Selects the table (created if absent) and starts multicast routing on it.
  int start();
  // VIF number vif on the device ifindex.
  int addVif(int vif, int ifindex);
  int delVif(int vif);
  // Adds the entry (source, group), or rewrites it in place when present
  // (its counts are kept): packets arriving on VIF parent go out of every VIF
  // of outputs.
  int addMfc(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, int parent, VifSet outputs);
  int delMfc(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group);
  int counts(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, Counts& out) const;
  // Discards the kernel's pending messages: packets no entry covers are
  // reported to the socket's owner, as to a routing daemon; a full queue
  // makes the kernel log "pending queue full". Returns how many.
  std::size_t drain();

 private:
  int fd_;
  std::uint32_t table_;
  Netcore::AddressFamily af_;
};

}  // namespace FalKernel
