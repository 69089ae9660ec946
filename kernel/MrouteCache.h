#pragma once
// FalKernel::MrouteCache: the kernel's multicast forwarding cache of the
// default table, read back from /proc/net/ip_mr_cache (ip6_mr_cache) and
// its VIFs from /proc/net/ip_mr_vif (ip6_mr_vif), with VIF numbers turned
// into device names. It is what the kernel really forwards with, read
// independently of any chip's own book.
//
// Entries still waiting for resolution (the kernel queued a packet nobody
// routed yet) have no incoming VIF and are left out.
//
// The parsing is pure (text in, values out) so it is testable without a
// namespace; read() fetches the files inside one.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kernel/KernelNetns.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/IpGenAddr.h"

namespace FalKernel {

class MrouteCache {
 public:
  struct Entry {
    Netcore::IpGenAddr group;
    Netcore::IpGenAddr origin;  // all zero for (*,G)
    int iif = -1;               // VIF number
    std::set<int> oifs;         // VIF numbers
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    std::uint64_t wrongIf = 0;
    // The same with device names, filled by read().
    std::string iifName;
    std::set<std::string> oifNames;
  };

  // Parses ip_mr_cache (ipv4) or ip6_mr_cache (ipv6). Throws
  // std::invalid_argument naming the line that does not parse.
  static std::vector<Entry> parseCache(std::string_view text, Netcore::AddressFamily af);
  // Parses ip_mr_vif / ip6_mr_vif: VIF number -> device name.
  static std::map<int, std::string> parseVifs(std::string_view text);
  // Both files of af, read inside netns, VIFs resolved to device names.
  static std::vector<Entry> read(KernelNetns const& netns, Netcore::AddressFamily af);
};

}  // namespace FalKernel
