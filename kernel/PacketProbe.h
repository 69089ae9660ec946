#pragma once
// FalKernel::PacketProbe: real UDP multicast packets into a namespace's
// devices, and the copies that come out.
//
// Injection: a whole Ethernet frame (multicast destination MAC, IPv4 or IPv6,
// UDP, a payload carrying a magic word and a 64-bit token) is written with a
// packet socket onto a device; a veth delivers it to its other end as if it
// had arrived from the wire, and the kernel routes it from there. So the
// source address can be any host, as on a real network, and nothing in the
// namespace needs an address.
//
// Capture: one packet socket sees every frame arriving on any device of the
// namespace (frames a device sends are ignored at the socket); each frame
// carrying the magic word is reported with the device it arrived on and its
// token. Tokens tell apart the packets of several sends collected at once.
//
// Waiting is bounded: collect() returns as soon as the expected copies have
// arrived and a short quiet window has passed without more (an extra copy
// would arrive inside it: forwarding between veths runs in the sender's
// softirq), or when the timeout runs out.
#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "kernel/KernelNetns.h"
#include "platform/net/IpGenAddr.h"

namespace FalKernel {

// How long collect() waits at most, and for how long nothing more may
// arrive once the expected copies are in.
struct PacketProbeTiming {
  std::chrono::milliseconds timeout{1000};
  std::chrono::milliseconds quiet{20};
};

class PacketProbe {
 public:
  static constexpr std::uint16_t kUdpPort = 50000;

  struct Capture {
    std::uint64_t token = 0;
    int ifindex = 0;  // the device it arrived on
    std::uint8_t ttl = 0;  // TTL or hop limit on arrival
  };

  using Timing = PacketProbeTiming;

  // Opens the send and capture sockets in netns. Throws std::system_error.
  explicit PacketProbe(KernelNetns const& netns);
  ~PacketProbe();
  PacketProbe(PacketProbe const&) = delete;
  PacketProbe& operator=(PacketProbe const&) = delete;

  // Writes one packet (source -> group, UDP to kUdpPort, TTL / hop limit 64,
  // payloadBytes of payload, at least 16) onto the device ifindex. 0 or errno.
  int send(int ifindex, Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, std::uint64_t token,
           std::size_t payloadBytes = 64);
  // The probe frames that arrive from now until `expected` of those that
  // `counted` accepts (by device) have arrived and the quiet window has
  // passed, or the timeout. Frames `counted` refuses are not returned.
  std::vector<Capture> collect(std::size_t expected, std::function<bool(int ifindex)> const& counted,
                               Timing timing = Timing{});
  // Frames that arrived with the magic word but could not be read back.
  std::uint64_t malformed() const { return malformed_; }

 private:
  int sendFd_ = -1;
  int captureFd_ = -1;
  std::uint64_t malformed_ = 0;
};

}  // namespace FalKernel
