#pragma once
// Which kernel multicast routing table holds a VRF's routes.
//
// VRF 0 is the kernel's default table of the family (IPv4: 253, IPv6: 254),
// the one that receives every packet no rule sends elsewhere and the one
// /proc/net/ip_mr_cache and ip6_mr_cache show. Every other VRF gets a table
// of its own above the 8-bit range, so no VRF id collides with the kernel's
// reserved tables.
#include <cstdint>

#include "platform/net/AddressFamily.h"

namespace FalKernel {

inline constexpr std::uint32_t kDefaultMrouteTable = 253;
inline constexpr std::uint32_t kDefaultMroute6Table = 254;
inline constexpr std::uint32_t kVrfMrouteTableBase = 0x10000;

constexpr std::uint32_t mrouteTableOf(std::uint16_t vrfId, Netcore::AddressFamily af) {
  if (vrfId != 0) return kVrfMrouteTableBase + vrfId;
  return af == Netcore::AddressFamily::ipv6 ? kDefaultMroute6Table : kDefaultMrouteTable;
}

}  // namespace FalKernel
