#pragma once
// RtnlMessages: builds rtnetlink messages as the kernel sends them, for
// tests that feed the kernel FIB source or its parser: multicast-route and
// link messages, a dump's end and an error reply. Each call appends one
// message to a datagram.
#include <cstdint>
#include <vector>

#include <linux/netlink.h>

#include "kernel/netlink/LinkEntry.h"
#include "kernel/netlink/MfcEntry.h"

namespace FalTest {

class RtnlMessages {
 public:
  struct Header {
    std::uint32_t seq = 0;
    std::uint32_t portId = 0;
    std::uint16_t flags = 0;  // NLM_F_MULTI, NLM_F_DUMP_INTR, ...
  };

  // RTM_NEWROUTE or RTM_DELROUTE of the entry's IPMR family. The table goes
  // in rtm_table (as RT_TABLE_COMPAT above 255) and in RTA_TABLE.
  void mfc(std::uint16_t type, FalKernel::MfcEntry const& e, Header h);
  // RTM_NEWLINK or RTM_DELLINK.
  void link(std::uint16_t type, FalKernel::LinkEntry const& l, Header h);
  void done(Header h);
  void error(int err, Header h);

  std::vector<char> const& datagram() const { return buf_; }
  bool empty() const { return buf_.empty(); }
  void clear() { buf_.clear(); }

 private:
  nlmsghdr* begin(std::uint16_t type, Header h);
  void end();

  std::vector<char> buf_;
  std::vector<char> msg_;
};

}  // namespace FalTest
