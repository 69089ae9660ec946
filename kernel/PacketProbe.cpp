#include "kernel/PacketProbe.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace FalKernel {

namespace {

constexpr std::array<std::uint8_t, 8> kMagic{'F', 'a', 'l', 'M', 'r', 'o', 'u', 't'};
constexpr std::size_t kEthLen = 14;
constexpr std::size_t kIp4Len = 20;
constexpr std::size_t kIp6Len = 40;
constexpr std::size_t kUdpLen = 8;
constexpr std::uint8_t kHops = 64;

#ifndef PACKET_IGNORE_OUTGOING
#define PACKET_IGNORE_OUTGOING 23
#endif

void put16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v >> 8);
  p[1] = static_cast<std::uint8_t>(v);
}

std::uint16_t get16(std::uint8_t const* p) { return static_cast<std::uint16_t>((p[0] << 8) | p[1]); }

// The ones' complement sum of the 16-bit words of [p, p + n).
std::uint32_t sum16(std::uint8_t const* p, std::size_t n, std::uint32_t sum = 0) {
  for (std::size_t i = 0; i + 1 < n; i += 2) sum += get16(p + i);
  if (n & 1) sum += static_cast<std::uint32_t>(p[n - 1]) << 8;
  return sum;
}

std::uint16_t fold(std::uint32_t sum) {
  while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

// The multicast MAC address a group maps to.
std::array<std::uint8_t, 6> groupMac(Netcore::IpGenAddr const& group) {
  auto const& b = group.bytes();
  if (group.isV6()) return {0x33, 0x33, b[12], b[13], b[14], b[15]};
  return {0x01, 0x00, 0x5e, static_cast<std::uint8_t>(b[1] & 0x7F), b[2], b[3]};
}

}  // namespace

PacketProbe::PacketProbe(KernelNetns const& netns) {
  sendFd_ = netns.openSocket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (sendFd_ < 0) throw std::system_error(errno, std::generic_category(), "packet socket for sending");
  captureFd_ = netns.openSocket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ALL));
  if (captureFd_ < 0) {
    int const err = errno;
    ::close(sendFd_);
    throw std::system_error(err, std::generic_category(), "packet socket for capturing");
  }
  int const one = 1;
  ::setsockopt(captureFd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &one, sizeof one);
  // Room for the copies of a few hundred packets collected at once.
  int const bytes = 32 << 20;
  if (::setsockopt(captureFd_, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) != 0) {
    ::setsockopt(captureFd_, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  }
}

PacketProbe::~PacketProbe() {
  ::close(sendFd_);
  ::close(captureFd_);
}

int PacketProbe::send(int ifindex, Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, std::uint64_t token,
                      std::size_t payloadBytes) {
  if (source.af() != group.af() || !group.isMulticast()) return EINVAL;
  bool const v6 = group.isV6();
  std::size_t const payload = std::max<std::size_t>(payloadBytes, kMagic.size() + 8);
  std::size_t const ipLen = v6 ? kIp6Len : kIp4Len;
  std::vector<std::uint8_t> frame(kEthLen + ipLen + kUdpLen + payload, 0);
  auto const mac = groupMac(group);
  std::memcpy(frame.data(), mac.data(), 6);
  std::array<std::uint8_t, 6> const self{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
  std::memcpy(frame.data() + 6, self.data(), 6);
  put16(frame.data() + 12, v6 ? ETH_P_IPV6 : ETH_P_IP);

  std::uint8_t* ip = frame.data() + kEthLen;
  std::uint8_t* udp = ip + ipLen;
  std::uint8_t* data = udp + kUdpLen;
  std::size_t const udpLen = kUdpLen + payload;
  std::memcpy(data, kMagic.data(), kMagic.size());
  for (int i = 0; i < 8; ++i) data[kMagic.size() + i] = static_cast<std::uint8_t>(token >> (56 - 8 * i));
  put16(udp, kUdpPort);
  put16(udp + 2, kUdpPort);
  put16(udp + 4, static_cast<std::uint16_t>(udpLen));

  std::uint32_t pseudo = 0;
  if (v6) {
    ip[0] = 0x60;
    put16(ip + 4, static_cast<std::uint16_t>(udpLen));
    ip[6] = IPPROTO_UDP;
    ip[7] = kHops;
    std::memcpy(ip + 8, source.bytes().data(), 16);
    std::memcpy(ip + 24, group.bytes().data(), 16);
    pseudo = sum16(ip + 8, 32) + static_cast<std::uint32_t>(udpLen) + IPPROTO_UDP;
  } else {
    ip[0] = 0x45;
    put16(ip + 2, static_cast<std::uint16_t>(kIp4Len + udpLen));
    ip[8] = kHops;
    ip[9] = IPPROTO_UDP;
    std::memcpy(ip + 12, source.bytes().data(), 4);
    std::memcpy(ip + 16, group.bytes().data(), 4);
    put16(ip + 10, fold(sum16(ip, kIp4Len)));
    pseudo = sum16(ip + 12, 8) + static_cast<std::uint32_t>(udpLen) + IPPROTO_UDP;
  }
  std::uint16_t check = fold(sum16(udp, udpLen, pseudo));
  put16(udp + 6, check == 0 ? 0xFFFF : check);

  sockaddr_ll to{};
  to.sll_family = AF_PACKET;
  to.sll_ifindex = ifindex;
  to.sll_protocol = htons(v6 ? ETH_P_IPV6 : ETH_P_IP);
  to.sll_halen = 6;
  std::memcpy(to.sll_addr, mac.data(), 6);
  ssize_t const n = ::sendto(sendFd_, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr const*>(&to), sizeof to);
  if (n < 0) return errno;
  return n == static_cast<ssize_t>(frame.size()) ? 0 : EMSGSIZE;
}

std::vector<PacketProbe::Capture> PacketProbe::collect(std::size_t expected, std::function<bool(int)> const& counted,
                                                       Timing timing) {
  using Clock = std::chrono::steady_clock;
  std::vector<Capture> out;
  auto const deadline = Clock::now() + timing.timeout;
  auto quietUntil = Clock::time_point::max();
  std::array<std::uint8_t, 2048> buf;
  for (;;) {
    auto const now = Clock::now();
    if (out.size() >= expected && quietUntil == Clock::time_point::max()) quietUntil = now + timing.quiet;
    auto const until = std::min(deadline, quietUntil);
    if (now >= until) break;
    pollfd p{captureFd_, POLLIN, 0};
    auto const wait = std::chrono::duration_cast<std::chrono::milliseconds>(until - now).count() + 1;
    if (::poll(&p, 1, static_cast<int>(wait)) <= 0) continue;
    for (;;) {
      sockaddr_ll from{};
      socklen_t fromLen = sizeof from;
      ssize_t const n = ::recvfrom(captureFd_, buf.data(), buf.size(), 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
      if (n < 0) break;
      if (from.sll_pkttype == PACKET_OUTGOING || !counted(from.sll_ifindex)) continue;
      auto const len = static_cast<std::size_t>(n);
      if (len < kEthLen + kIp4Len + kUdpLen) continue;
      std::uint16_t const type = get16(buf.data() + 12);
      std::uint8_t const* ip = buf.data() + kEthLen;
      std::size_t ipLen = 0;
      std::uint8_t ttl = 0;
      if (type == ETH_P_IP && (ip[0] >> 4) == 4 && ip[9] == IPPROTO_UDP) {
        ipLen = static_cast<std::size_t>(ip[0] & 0x0F) * 4;
        ttl = ip[8];
      } else if (type == ETH_P_IPV6 && len >= kEthLen + kIp6Len + kUdpLen && ip[6] == IPPROTO_UDP) {
        ipLen = kIp6Len;
        ttl = ip[7];
      } else {
        continue;
      }
      std::uint8_t const* udp = ip + ipLen;
      std::uint8_t const* data = udp + kUdpLen;
      if (data + kMagic.size() > buf.data() + len || get16(udp + 2) != kUdpPort ||
          std::memcmp(data, kMagic.data(), kMagic.size()) != 0) {
        continue;
      }
      if (data + kMagic.size() + 8 > buf.data() + len) {
        ++malformed_;
        continue;
      }
      std::uint64_t token = 0;
      for (int i = 0; i < 8; ++i) token = (token << 8) | data[kMagic.size() + i];
      out.push_back({token, from.sll_ifindex, ttl});
    }
  }
  return out;
}

}  // namespace FalKernel
