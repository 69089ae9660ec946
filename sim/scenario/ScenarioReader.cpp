#include "sim/scenario/ScenarioReader.h"

#include <algorithm>

namespace FalSim {

namespace {

// "interfaces.vlans (100, 200)", at most ten of them.
std::string declaredVlans(std::vector<Scenario::VlanIntf> const& vlans) {
  constexpr std::size_t kShown = 10;
  std::string list;
  for (std::size_t i = 0; i < vlans.size() && i < kShown; ++i) list += (i ? ", " : "") + std::to_string(vlans[i].vlan.value());
  if (vlans.size() > kShown) list += ", ...";
  return "interfaces.vlans (" + (vlans.empty() ? std::string("none is") : list) + ")";
}

}  // namespace

void ScenarioReader::ethernetIs(Netcore::IntfId intf, Value const& v, std::string const& path) {
  if (!ethernetSet_.insert(intf).second) fail(path, "an Ethernet interface not listed before", &v);
  s_.ethernet.push_back(intf);
}

bool ScenarioReader::vlanDeclared(Bridging::VlanId vlan) const {
  return std::any_of(s_.vlans.begin(), s_.vlans.end(), [&](auto const& d) { return d.vlan == vlan; });
}

L3::VrfName ScenarioReader::declaredVrf(Value const& obj, std::string const& path) const {
  Value const* v = member(obj, "vrf");
  if (!v) return s_.vrfs.front().name;
  L3::VrfName name = vrfName(*v, child(path, "vrf"));
  if (!s_.vrfId(name)) {
    std::string names;
    for (auto const& d : s_.vrfs) names += (names.empty() ? "" : ", ") + d.name.stringValue();
    fail(child(path, "vrf"), "a VRF declared in vrfs (" + names + ")", v);
  }
  return name;
}

Bridging::VlanId ScenarioReader::declaredVlan(Value const& v, std::string const& path) const {
  Bridging::VlanId const id = vlan(v, path);
  if (!vlanDeclared(id)) fail(path, "a VLAN declared in " + declaredVlans(s_.vlans), &v);
  return id;
}

Netcore::IntfId ScenarioReader::declaredEthernet(Value const& v, std::string const& path) const {
  Netcore::IntfId const intf = ethernet(v, path);
  if (!ethernetDeclared(intf)) fail(path, "a declared Ethernet interface", &v);
  return intf;
}

MrouteLib::PortVlan ScenarioReader::output(Value const& v, std::string const& path, char const* what) const {
  std::string const form = std::string(what) + " \"EthernetN.VLAN\" or \"EthernetN\" on a declared Ethernet port";
  MrouteLib::PortVlan const pv = portVlan(v, path, form.c_str());
  if (!ethernetDeclared(pv.port())) fail(path, form, &v);
  if (!pv.vlan().isNone() && !vlanDeclared(pv.vlan().vlanId())) {
    fail(path, std::string(what) + " on a VLAN declared in " + declaredVlans(s_.vlans), &v);
  }
  return pv;
}

std::size_t ScenarioReader::routeSetIndex(Value const& v, std::string const& path) const {
  std::string const name = string(v, path, "the name of a route set");
  for (std::size_t i = 0; i < s_.routeSets.size(); ++i) {
    if (s_.routeSets[i].name == name) return i;
  }
  fail(path, "the name of a route set declared in routeSets", &v);
}

std::uint32_t ScenarioReader::chipNumber(Value const& v, std::string const& path) const {
  std::string const what = "a chip number from 0 to " + std::to_string(s_.chips.count - 1);
  return static_cast<std::uint32_t>(integer(v, path, what, 0, s_.chips.count - 1));
}

Netcore::IpGenAddr ScenarioReader::address(Value const& v, std::string const& path, std::string const& what) const {
  std::string const text = string(v, path, what);
  try {
    return Netcore::IpGenAddr(text);
  } catch (std::exception const&) {
    fail(path, what, &v);
  }
}

Netcore::IpGenPrefix ScenarioReader::group(Value const& v, std::string const& path) const {
  char const* const what = "a multicast group address (\"239.1.1.1\", \"ff3e::1\") or prefix";
  std::string const text = string(v, path, what);
  Netcore::IpGenPrefix p;
  try {
    p = Netcore::IpGenPrefix(text);
  } catch (std::exception const&) {
    fail(path, what, &v);
  }
  if (!p.isMulticast()) fail(path, what, &v);
  return p;
}

Netcore::IpGenPrefix ScenarioReader::source(Value const* v, std::string const& path, Netcore::AddressFamily af) const {
  bool const v6 = af == Netcore::AddressFamily::ipv6;
  Netcore::IpGenPrefix const starG(Netcore::IpGenAddr(v6 ? "::" : "0.0.0.0"), 0);
  if (!v) return starG;
  std::string const what = std::string("\"*\" or a source address of the group's family (") + (v6 ? "IPv6" : "IPv4") + ")";
  std::string const text = string(*v, path, what);
  if (text == "*") return starG;
  Netcore::IpGenPrefix p;
  try {
    p = Netcore::IpGenPrefix(text);
  } catch (std::exception const&) {
    fail(path, what, v);
  }
  if (p.af() != af || p.isMulticast()) fail(path, what, v);
  return p;
}

Routing::Multicast::Fib::IpGenRouteKey ScenarioReader::routeKey(Value const& obj, std::string const& path) const {
  Netcore::IpGenPrefix g = group(required(obj, path, "group", "a multicast group address"), child(path, "group"));
  Netcore::IpGenPrefix s = source(member(obj, "source"), child(path, "source"), g.af());
  return Routing::Multicast::Fib::IpGenRouteKey(std::move(s), std::move(g));
}

std::size_t ScenarioReader::tableSize(Value const& v, std::string const& path) const {
  return integer(v, path, "a table size from 0 to " + std::to_string(kMaxTableSize), 0, kMaxTableSize);
}

ReferenceChip::Table ScenarioReader::table(Value const& v, std::string const& path) const {
  char const* const what = "one of \"route\", \"boundary\", \"replication\"";
  std::string const text = string(v, path, what);
  if (text == "route") return ReferenceChip::Table::route;
  if (text == "boundary") return ReferenceChip::Table::boundary;
  if (text == "replication") return ReferenceChip::Table::replication;
  fail(path, what, &v);
}

}  // namespace FalSim
