#pragma once
// FalKernel::MrouteTranslator: turns what the kernel says about its multicast
// forwarding cache and its interfaces into the platform's terms. Pure
// functions of their arguments, so every rule here is tested without a
// socket or a privilege.
//
// An entry becomes a desired route when its table is mapped to a VRF and its
// input device to a platform interface:
// - key: (S/32, G/32), or (S/128, G/128); a zero source is (*, G)
//   (source 0.0.0.0/0 or ::/0); the (*, *) entry is not a route;
// - accepting VLAN: the input interface's VLAN; accepting interface: that
//   VLAN's interface ("Vlan100");
// - outputs: one port-VLAN per output device that is mapped (duplicates
//   fold); outputs on unmapped devices are left out and counted;
// - fast reroute: the first output, in the kernel's order, whose interface
//   has backups protects the set: its port becomes the protected interface
//   (and the current incoming one), and its backups the set's FRR outputs.
//   A set protects one port; later protected outputs add nothing.
// The kernel's per-output TTL thresholds have no counterpart and are dropped.
#include <cstdint>
#include <optional>
#include <ostream>

#include "kernel/netlink/LinkTable.h"
#include "kernel/netlink/MfcEntry.h"
#include "kernel/netlink/SourceMap.h"
#include "platform/intf/IntfOperStatus.h"
#include "platform/mroutelib/DesiredRoute.h"

namespace FalKernel {

class MrouteTranslator {
 public:
  // Why an entry is not a route; none when it is one.
  enum class Skip : std::uint8_t { none, unresolved, unmappedTable, wildcardGroup, noInput, unmappedInput };

  struct Result {
    std::optional<MrouteLib::DesiredRoute> route;
    Skip skip = Skip::none;
    std::uint32_t outputsUnmapped = 0;
  };

  static Result route(MfcEntry const& entry, LinkTable const& links, SourceMap const& map);
  // The platform's view of a link's state: down while administratively
  // down, else its operational state.
  static Interface::IntfOperStatus operStatus(LinkEntry const& link);
};

// "unmapped input", for traces and status.
std::ostream& operator<<(std::ostream& os, MrouteTranslator::Skip s);

}  // namespace FalKernel
