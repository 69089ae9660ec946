#pragma once
// One output of an OIF set: a port and the VLAN the packet leaves it in (or
// no VLAN: routed out untagged).
//
// Ordered by port, then VLAN, so the outputs of a set sort by port. Its short
// text form is "Ethernet1.100" ("Ethernet1" without a VLAN); its strep form
// is "Value('MrouteLib::PortVlan', ** {'port': 'Ethernet1', 'vlan': 100})".
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

#include "platform/net/IntfId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace MrouteLib {

class FALMROUTE_EXPORT PortVlan {
 public:
  PortVlan() = default;
  PortVlan(Netcore::IntfId port, Bridging::VlanIdOrNone vlan) : port_(port), vlan_(vlan) {}
  // Parses the short form "Ethernet1.100" or "Ethernet1"; throws
  // Vex::ParseError or Vex::RangeException on a bad port or VLAN.
  explicit PortVlan(std::string_view text);

  Netcore::IntfId port() const { return port_; }
  void portIs(Netcore::IntfId port) { port_ = port; }
  Bridging::VlanIdOrNone vlan() const { return vlan_; }
  void vlanIs(Bridging::VlanIdOrNone vlan) { vlan_ = vlan; }

  // Port and VLAN packed in one number; distinct outputs give distinct keys.
  std::uint64_t packed() const { return (std::uint64_t{port_.value()} << 16) | vlan_.value(); }
  std::size_t hash() const;
  // The short form.
  std::string stringValue() const;

  friend bool operator==(PortVlan, PortVlan) = default;
  friend auto operator<=>(PortVlan, PortVlan) = default;
  template <typename H>
  friend H AbslHashValue(H h, PortVlan pv) {
    return H::combine(std::move(h), pv.packed());
  }

 private:
  Netcore::IntfId port_;
  Bridging::VlanIdOrNone vlan_;
};

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, PortVlan pv);
FALMROUTE_EXPORT void strepOut(std::ostream& os, PortVlan pv);
FALMROUTE_EXPORT PortVlan strepIn(Vex::StrepParser& p, Vex::StrepTag<PortVlan>);

}  // namespace MrouteLib

template <>
struct FALMROUTE_EXPORT std::hash<MrouteLib::PortVlan> {
  std::size_t operator()(MrouteLib::PortVlan pv) const noexcept { return pv.hash(); }
};
