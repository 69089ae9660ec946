#pragma once
// FalSim::ScenarioReader: the checked reading of one scenario file, shared
// by the readers of its sections (ChipsReader, InterfacesReader, ...).
//
// It holds the scenario read so far, so that a later section resolves the
// names an earlier one declared: VRFs, Ethernet ports, VLANs, route sets and
// the chip count. The values that must be declared are read here, once, with
// the message a user sees when they are not.
//
// VLANs are strict everywhere: a route's accepting VLAN, the VLAN of every
// output and backup output ("Ethernet3.200"), a generator's output VLANs and
// the VLAN traffic arrives on must all be listed in interfaces.vlans. A port
// given without a VLAN ("Ethernet3") is an untagged output.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "platform/fib/IpGenRouteKey.h"
#include "platform/mroutelib/PortVlan.h"
#include "platform/net/AddressFamily.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/types/VlanId.h"
#include "platform/types/VrfName.h"
#include "sim/JsonReader.h"
#include "sim/ReferenceChip.h"
#include "sim/Scenario.h"

namespace FalSim {

class ScenarioReader : public JsonReader {
 public:
  // Table sizes a scenario may give.
  static constexpr std::uint64_t kMaxTableSize = 100'000'000;

  explicit ScenarioReader(std::string file) : JsonReader(std::move(file)) {}

  Scenario& scenario() { return s_; }
  Scenario const& scenario() const { return s_; }

  // ---- what the interfaces section declares ----
  void ethernetIs(Netcore::IntfId intf, Value const& v, std::string const& path);
  bool ethernetDeclared(Netcore::IntfId intf) const { return ethernetSet_.contains(intf); }
  bool vlanDeclared(Bridging::VlanId vlan) const;

  // ---- values that must be declared ----
  // The "vrf" member of obj, a VRF the scenario declares; the first one when absent.
  L3::VrfName declaredVrf(Value const& obj, std::string const& path) const;
  Bridging::VlanId declaredVlan(Value const& v, std::string const& path) const;
  Netcore::IntfId declaredEthernet(Value const& v, std::string const& path) const;
  // An output "EthernetN.VLAN" (or "EthernetN", untagged) on a declared port
  // and VLAN; what says which output it is.
  MrouteLib::PortVlan output(Value const& v, std::string const& path, char const* what = "an output") const;
  std::size_t routeSetIndex(Value const& v, std::string const& path) const;
  std::uint32_t chipNumber(Value const& v, std::string const& path) const;

  // ---- addresses and keys ----
  Netcore::IpGenAddr address(Value const& v, std::string const& path, std::string const& what) const;
  // A multicast group address or prefix.
  Netcore::IpGenPrefix group(Value const& v, std::string const& path) const;
  // "*" (or absent) for (*, G), else a unicast prefix of the family af.
  Netcore::IpGenPrefix source(Value const* v, std::string const& path, Netcore::AddressFamily af) const;
  // The "group" and "source" members of obj.
  Routing::Multicast::Fib::IpGenRouteKey routeKey(Value const& obj, std::string const& path) const;

  // ---- chips ----
  std::size_t tableSize(Value const& v, std::string const& path) const;
  ReferenceChip::Table table(Value const& v, std::string const& path) const;

 private:
  Scenario s_;
  std::set<Netcore::IntfId> ethernetSet_;
};

}  // namespace FalSim
