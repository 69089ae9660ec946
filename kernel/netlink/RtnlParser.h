#pragma once
// FalKernel::RtnlParser: reads the rtnetlink messages the kernel FIB source
// cares about into plain values, with libmnl's attribute parser and
// validation. Pure: no socket, no state; a message that is not of the kind
// asked for, or is malformed (a short header, an attribute of the wrong
// size, an address of the wrong family), gives nothing.
#include <optional>

#include <linux/netlink.h>

#include "kernel/netlink/LinkEntry.h"
#include "kernel/netlink/MfcEntry.h"

namespace FalKernel {

class RtnlParser {
 public:
  // RTM_NEWROUTE or RTM_DELROUTE of RTNL_FAMILY_IPMR or RTNL_FAMILY_IP6MR.
  static std::optional<MfcEntry> mfc(nlmsghdr const* nlh);
  // RTM_NEWLINK or RTM_DELLINK with a name.
  static std::optional<LinkEntry> link(nlmsghdr const* nlh);
};

}  // namespace FalKernel
