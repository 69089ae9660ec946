#include "sim/ScenarioLoader.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <set>
#include <tuple>
#include <sstream>

#include "platform/vex/Assert.h"
#include "platform/vex/Strep.h"
#include "sim/JsonReader.h"
#include "sim/RouteSetGenerator.h"

namespace FalSim {

namespace {

using rapidjson::Value;
using Routing::Multicast::Fib::CounterMode;
using Routing::Multicast::Fib::IpGenRouteKey;
using EventKind = Scenario::EventKind;

constexpr std::uint64_t kMaxTableSize = 100'000'000;
constexpr std::uint64_t kMaxRoutesPerSet = 2'000'000;
constexpr std::uint32_t kMaxChips = 1024;
constexpr std::uint32_t kMaxEthernet = 4096;

// "1 VLAN", "3 VLANs".
std::string counted(std::uint64_t n, char const* noun) {
  return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

class Loader : JsonReader {
 public:
  explicit Loader(std::string file) : JsonReader(std::move(file)) {}

  Scenario run(std::string_view text);

 private:
  // ---- values of this system ----
  // A VRF the scenario declares; the first one when the field is absent.
  L3::VrfName declaredVrf(Value const& obj, std::string const& path) const;
  Bridging::VlanId declaredVlan(Value const& v, std::string const& path) const;
  MrouteLib::PortVlan portVlan(Value const& v, std::string const& path) const;
  Netcore::IpGenAddr address(Value const& v, std::string const& path, std::string const& what) const;
  Netcore::IpGenPrefix group(Value const& v, std::string const& path) const;
  // "*" (or absent) for (*, G), else a prefix of the group's family.
  Netcore::IpGenPrefix source(Value const* v, std::string const& path, Netcore::AddressFamily af) const;
  IpGenRouteKey routeKey(Value const& obj, std::string const& path) const;
  ReferenceChip::Table table(Value const& v, std::string const& path) const;
  std::size_t routeSetIndex(Value const& v, std::string const& path) const;
  std::uint32_t chipNumber(Value const& v, std::string const& path) const;

  // ---- sections ----
  void chips(Value const& v, std::string const& path);
  void interfaces(Value const& v, std::string const& path);
  void vrfs(Value const& v, std::string const& path);
  void counters(Value const& v, std::string const& path);
  void routeSets(Value const& v, std::string const& path);
  MrouteLib::DesiredRoute route(Value const& v, std::string const& path) const;
  Scenario::RouteSet generated(std::string name, Value const& v, std::string const& path) const;
  void events(Value const& v, std::string const& path);
  void traffic(Value const& v, std::string const& path, Scenario::Traffic& t) const;
  void config(Value const& v, std::string const& path, Scenario::Config& c) const;
  void fault(Value const& v, std::string const& path, Scenario::Fault& f) const;

  Scenario s_;
  std::set<Netcore::IntfId> ethernetSet_;
};

L3::VrfName Loader::declaredVrf(Value const& obj, std::string const& path) const {
  Value const* v = member(obj, "vrf");
  if (!v) return s_.vrfs.front().name;
  L3::VrfName const name = vrfName(*v, child(path, "vrf"));
  if (!s_.vrfId(name)) {
    std::string names;
    for (auto const& d : s_.vrfs) names += (names.empty() ? "" : ", ") + d.name.stringValue();
    fail(child(path, "vrf"), "a VRF declared in vrfs (" + names + ")", v);
  }
  return name;
}

Bridging::VlanId Loader::declaredVlan(Value const& v, std::string const& path) const {
  Bridging::VlanId const id = vlan(v, path);
  if (std::none_of(s_.vlans.begin(), s_.vlans.end(), [&](auto const& d) { return d.vlan == id; })) {
    fail(path, "a VLAN declared in interfaces.vlans", &v);
  }
  return id;
}

MrouteLib::PortVlan Loader::portVlan(Value const& v, std::string const& path) const {
  char const* const what = "an output \"EthernetN.VLAN\" or \"EthernetN\" on a declared Ethernet port";
  MrouteLib::PortVlan const pv = JsonReader::portVlan(v, path, what);
  if (!ethernetSet_.contains(pv.port())) fail(path, what, &v);
  return pv;
}

Netcore::IpGenAddr Loader::address(Value const& v, std::string const& path, std::string const& what) const {
  std::string const text = string(v, path, what);
  try {
    return Netcore::IpGenAddr(text);
  } catch (std::exception const&) {
    fail(path, what, &v);
  }
}

Netcore::IpGenPrefix Loader::group(Value const& v, std::string const& path) const {
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

Netcore::IpGenPrefix Loader::source(Value const* v, std::string const& path, Netcore::AddressFamily af) const {
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

IpGenRouteKey Loader::routeKey(Value const& obj, std::string const& path) const {
  Netcore::IpGenPrefix const g = group(required(obj, path, "group", "a multicast group address"), child(path, "group"));
  return IpGenRouteKey(source(member(obj, "source"), child(path, "source"), g.af()), g);
}

ReferenceChip::Table Loader::table(Value const& v, std::string const& path) const {
  char const* const what = "one of \"route\", \"boundary\", \"replication\"";
  std::string const text = string(v, path, what);
  if (text == "route") return ReferenceChip::Table::route;
  if (text == "boundary") return ReferenceChip::Table::boundary;
  if (text == "replication") return ReferenceChip::Table::replication;
  fail(path, what, &v);
}

std::size_t Loader::routeSetIndex(Value const& v, std::string const& path) const {
  std::string const name = string(v, path, "the name of a route set");
  for (std::size_t i = 0; i < s_.routeSets.size(); ++i) {
    if (s_.routeSets[i].name == name) return i;
  }
  fail(path, "the name of a route set declared in routeSets", &v);
}

std::uint32_t Loader::chipNumber(Value const& v, std::string const& path) const {
  std::string const what = "a chip number from 0 to " + std::to_string(s_.chips.count - 1);
  return static_cast<std::uint32_t>(integer(v, path, what, 0, s_.chips.count - 1));
}

// ---- sections ----

void Loader::chips(Value const& v, std::string const& path) {
  object(v, path);
  knownFields(v, path, {"count", "routes", "boundaries", "replicationEntries", "operationCost", "chip"});
  if (auto const* c = member(v, "chip")) {
    char const* const what = "one of \"reference\", \"kernel\"";
    std::string const kind = string(*c, child(path, "chip"), what);
    if (kind != "reference" && kind != "kernel") fail(child(path, "chip"), what, c);
    s_.chips.kernel = kind == "kernel";
  }
  if (auto const* c = member(v, "count")) {
    s_.chips.count = static_cast<std::uint32_t>(
        integer(*c, child(path, "count"), "a chip count from 1 to " + std::to_string(kMaxChips), 1, kMaxChips));
  }
  std::string const size = "a table size from 0 to " + std::to_string(kMaxTableSize);
  if (auto const* c = member(v, "routes")) s_.chips.capacity.routes = integer(*c, child(path, "routes"), size, 0, kMaxTableSize);
  if (auto const* c = member(v, "boundaries")) {
    s_.chips.capacity.boundaries = integer(*c, child(path, "boundaries"), size, 0, kMaxTableSize);
  }
  if (auto const* c = member(v, "replicationEntries")) {
    s_.chips.capacity.replicationEntries = integer(*c, child(path, "replicationEntries"), size, 0, kMaxTableSize);
  }
  if (auto const* c = member(v, "operationCost")) {
    s_.chips.operationCost = number(*c, child(path, "operationCost"), "a cost in seconds from 0 to 1", 0, 1);
  }
}

void Loader::interfaces(Value const& v, std::string const& path) {
  object(v, path);
  knownFields(v, path, {"ethernet", "vlans"});
  if (auto const* e = member(v, "ethernet")) {
    std::string const p = child(path, "ethernet");
    if (e->IsArray()) {
      auto const a = e->GetArray();
      for (std::size_t i = 0; i < a.Size(); ++i) {
        Netcore::IntfId const intf = ethernet(a[i], item(p, i));
        if (!ethernetSet_.insert(intf).second) fail(item(p, i), "an Ethernet interface not listed before", &a[i]);
        s_.ethernet.push_back(intf);
      }
    } else {
      auto const n = integer(*e, p, "a port count from 1 to 4096 or a list of names (\"Ethernet1\")", 1, kMaxEthernet);
      for (std::uint32_t i = 1; i <= n; ++i) {
        s_.ethernet.push_back(Netcore::IntfId::ethernet(i));
        ethernetSet_.insert(s_.ethernet.back());
      }
    }
  }
  if (auto const* vl = member(v, "vlans")) {
    std::string const p = child(path, "vlans");
    auto const a = array(*vl, p, "a list of VLAN ids");
    for (std::size_t i = 0; i < a.Size(); ++i) {
      Bridging::VlanId const id = vlan(a[i], item(p, i));
      if (std::any_of(s_.vlans.begin(), s_.vlans.end(), [&](auto const& d) { return d.vlan == id; })) {
        fail(item(p, i), "a VLAN id not listed before", &a[i]);
      }
      s_.vlans.push_back({Netcore::IntfId::vlan(id.value()), id});
    }
  }
}

void Loader::vrfs(Value const& v, std::string const& path) {
  auto const a = array(v, path, "a list of VRFs ({\"name\": \"red\", \"id\": 1})");
  if (a.Size() == 0) fail(path, "at least one VRF", &v);
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, "a VRF ({\"name\": \"red\", \"id\": 1})");
    knownFields(a[i], p, {"name", "id"});
    Scenario::Vrf vrf;
    std::tie(vrf.name, vrf.id) = newVrf(a[i], p, s_.vrfs);
    s_.vrfs.push_back(std::move(vrf));
  }
}

void Loader::counters(Value const& v, std::string const& path) {
  object(v, path);
  knownFields(v, path, {"all", "mode"});
  s_.allCounter = optBool(v, path, "all", s_.allCounter);
  if (auto const* m = member(v, "mode")) s_.counterMode = counterMode(*m, child(path, "mode"));
}

MrouteLib::DesiredRoute Loader::route(Value const& v, std::string const& path) const {
  object(v, path, "a route ({\"group\": \"239.1.1.1\", \"acceptingVlan\": 100, \"outputs\": [...]})");
  knownFields(v, path,
              {"vrf", "source", "group", "acceptingVlan", "outputs", "frr", "toCpu", "fastdrop", "noRpf", "bridge", "rpaId"});
  MrouteLib::DesiredRoute r(declaredVrf(v, path), routeKey(v, path));
  r.noRpfIs(optBool(v, path, "noRpf", false));
  r.bridgeIs(optBool(v, path, "bridge", false));
  r.fastdropIs(optBool(v, path, "fastdrop", false));
  if (r.noRpf() && r.bridge()) {
    failWith(child(path, "noRpf"), "false on a bridge (boundary) entry, which always has an accepting VLAN", "true");
  }
  Value const* accepting = member(v, "acceptingVlan");
  if (r.noRpf()) {
    if (accepting) fail(child(path, "acceptingVlan"), "no accepting VLAN on a noRpf route", accepting);
  } else {
    if (!accepting) fail(child(path, "acceptingVlan"), "a VLAN declared in interfaces.vlans (or \"noRpf\": true)");
    Bridging::VlanId const id = declaredVlan(*accepting, child(path, "acceptingVlan"));
    r.acceptingVlanIs(id);
    r.acceptingIntfIdIs(Netcore::IntfId::vlan(id.value()));
  }
  if (auto const* id = member(v, "rpaId")) {
    r.rpaIdIs(static_cast<std::uint16_t>(integer(*id, child(path, "rpaId"), "an RPA index from 0 to 65535", 0, 65535)));
  }
  MrouteLib::PortVlanSet outputs;
  if (auto const* o = member(v, "outputs")) {
    std::string const p = child(path, "outputs");
    if (r.bridge()) fail(p, "no outputs on a bridge (boundary) entry", o);
    auto const a = array(*o, p, "a list of outputs (\"Ethernet3.100\")");
    for (std::size_t i = 0; i < a.Size(); ++i) outputs.portVlanIs(portVlan(a[i], item(p, i)));
  }
  if (auto const* f = member(v, "frr")) {
    std::string const p = child(path, "frr");
    if (r.bridge()) fail(p, "no fast reroute on a bridge (boundary) entry", f);
    object(*f, p, "fast-reroute outputs ({\"protected\": \"Ethernet3\", \"backups\": [\"Ethernet5.100\"]})");
    knownFields(*f, p, {"protected", "backups", "currentIif"});
    Netcore::IntfId const prot = ethernet(required(*f, p, "protected", "the protected Ethernet interface"), child(p, "protected"));
    if (!ethernetSet_.contains(prot)) fail(child(p, "protected"), "a declared Ethernet interface", member(*f, "protected"));
    outputs.intfIdIs(prot);
    outputs.currentIifIs(prot);
    if (auto const* iif = member(*f, "currentIif")) {
      Netcore::IntfId const cur = ethernet(*iif, child(p, "currentIif"));
      if (!ethernetSet_.contains(cur)) fail(child(p, "currentIif"), "a declared Ethernet interface", iif);
      outputs.currentIifIs(cur);
    }
    std::string const bp = child(p, "backups");
    auto const a = array(required(*f, p, "backups", "a list of backup outputs"), bp, "a list of backup outputs (\"Ethernet5.100\")");
    if (a.Size() == 0) fail(bp, "at least one backup output", &required(*f, p, "backups", ""));
    for (std::size_t i = 0; i < a.Size(); ++i) outputs.portVlanFrrIs(portVlan(a[i], item(bp, i)));
  }
  outputs.toCpuIs(optBool(v, path, "toCpu", false));
  r.outputsIs(std::move(outputs));
  return r;
}

Scenario::RouteSet Loader::generated(std::string name, Value const& v, std::string const& path) const {
  object(v, path, "a generator ({\"count\": 1000, \"diversity\": 8, ...})");
  knownFields(v, path,
              {"count", "diversity", "seed", "vrf", "source", "groupBase", "acceptingVlan", "ports", "portsPerSet",
               "outputVlans", "frr"});
  RouteSetGenerator::Shape shape;
  std::string const countWhat = "a route count from 1 to " + std::to_string(kMaxRoutesPerSet);
  shape.count = integer(required(v, path, "count", countWhat), child(path, "count"), countWhat, 1, kMaxRoutesPerSet);
  if (auto const* seed = member(v, "seed")) shape.seed = integer(*seed, child(path, "seed"), "a seed from 0 to 2^64-1", 0, ~0ULL);
  shape.vrf = declaredVrf(v, path);
  Netcore::IpGenPrefix const base = group(required(v, path, "groupBase", "the first group address"), child(path, "groupBase"));
  if (!base.isHost()) fail(child(path, "groupBase"), "a group address, not a prefix", member(v, "groupBase"));
  shape.groupBase = base.address();
  Netcore::IpGenAddr const last = RouteSetGenerator::groupOf(shape.groupBase, shape.count - 1);
  bool const wraps = shape.groupBase.isV4() && std::uint64_t{shape.groupBase.v4Addr()} + shape.count - 1 > 0xFFFFFFFFULL;
  if (wraps || !last.isMulticast()) {
    failWith(child(path, "count"), "a count whose groups stay multicast (from " + shape.groupBase.stringValue() + ")",
             "a last group of " + last.stringValue());
  }
  shape.source = source(member(v, "source"), child(path, "source"), shape.groupBase.af());

  std::string const ap = child(path, "acceptingVlan");
  Value const& accepting = required(v, path, "acceptingVlan", "a VLAN declared in interfaces.vlans, or a list of them");
  if (accepting.IsArray()) {
    auto const a = accepting.GetArray();
    if (a.Size() == 0) fail(ap, "at least one accepting VLAN", &accepting);
    for (std::size_t i = 0; i < a.Size(); ++i) shape.acceptingVlans.push_back(declaredVlan(a[i], item(ap, i)));
  } else {
    shape.acceptingVlans.push_back(declaredVlan(accepting, ap));
  }

  if (auto const* ports = member(v, "ports")) {
    std::string const pp = child(path, "ports");
    auto const a = array(*ports, pp, "a list of declared Ethernet ports");
    for (std::size_t i = 0; i < a.Size(); ++i) {
      Netcore::IntfId const intf = ethernet(a[i], item(pp, i));
      if (!ethernetSet_.contains(intf)) fail(item(pp, i), "a declared Ethernet interface", &a[i]);
      if (std::find(shape.ports.begin(), shape.ports.end(), intf) != shape.ports.end()) {
        fail(item(pp, i), "a port not listed before", &a[i]);
      }
      shape.ports.push_back(intf);
    }
  } else {
    shape.ports = s_.ethernet;
  }
  if (shape.ports.empty()) fail(child(path, "ports"), "at least one Ethernet port (declare them in interfaces.ethernet)");
  shape.portsPerSet = std::min<std::size_t>(4, shape.ports.size());
  if (auto const* k = member(v, "portsPerSet")) {
    std::string const what = "a number of ports per set from 1 to " + std::to_string(shape.ports.size());
    shape.portsPerSet = integer(*k, child(path, "portsPerSet"), what, 1, shape.ports.size());
  }
  if (auto const* ov = member(v, "outputVlans")) {
    std::string const op = child(path, "outputVlans");
    auto const a = array(*ov, op, "a list of VLAN ids");
    for (std::size_t i = 0; i < a.Size(); ++i) shape.outputVlans.push_back(vlan(a[i], item(op, i)));
  }
  if (auto const* f = member(v, "frr")) {
    std::string const p = child(path, "frr");
    object(*f, p, "fast-reroute outputs ({\"protected\": \"Ethernet3\", \"backups\": [\"Ethernet5.100\"]})");
    knownFields(*f, p, {"protected", "backups"});
    RouteSetGenerator::Frr frr;
    frr.protectedIntf = ethernet(required(*f, p, "protected", "the protected Ethernet interface"), child(p, "protected"));
    if (!ethernetSet_.contains(frr.protectedIntf)) {
      fail(child(p, "protected"), "a declared Ethernet interface", member(*f, "protected"));
    }
    std::string const bp = child(p, "backups");
    Value const& backups = required(*f, p, "backups", "a list of backup outputs");
    auto const a = array(backups, bp, "a list of backup outputs (\"Ethernet5.100\")");
    if (a.Size() == 0) fail(bp, "at least one backup output", &backups);
    for (std::size_t i = 0; i < a.Size(); ++i) frr.backups.push_back(portVlan(a[i], item(bp, i)));
    shape.frr = std::move(frr);
  }

  std::uint64_t const most = RouteSetGenerator::maxDistinct(shape);
  if (auto const* d = member(v, "diversity")) {
    std::uint64_t const limit = std::min<std::uint64_t>(most, shape.count);
    std::string const what = "a number of distinct output sets from 1 to " + std::to_string(limit) + " (" +
                             counted(shape.ports.size(), "port") + ", " + std::to_string(shape.portsPerSet) +
                             " per set, " + counted(std::max<std::size_t>(1, shape.outputVlans.size()), "VLAN") +
                             ", " + counted(shape.count, "route") + ")";
    shape.diversity = integer(*d, child(path, "diversity"), what, 1, limit);
  }
  return RouteSetGenerator::generate(std::move(name), shape);
}

void Loader::routeSets(Value const& v, std::string const& path) {
  auto const a = array(v, path, "a list of route sets");
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, "a route set ({\"name\": ..., \"routes\": [...]} or {\"name\": ..., \"generate\": {...}})");
    knownFields(a[i], p, {"name", "routes", "generate"});
    std::string name = string(required(a[i], p, "name", "the route set's name"), child(p, "name"), "the route set's name");
    for (auto const& rs : s_.routeSets) {
      if (rs.name == name) fail(child(p, "name"), "a route set name not used before", member(a[i], "name"));
    }
    Value const* routes = member(a[i], "routes");
    Value const* gen = member(a[i], "generate");
    if ((routes != nullptr) == (gen != nullptr)) {
      failWith(p, "exactly one of \"routes\" and \"generate\"", routes ? "both" : "neither");
    }
    if (gen) {
      s_.routeSets.push_back(generated(std::move(name), *gen, child(p, "generate")));
      continue;
    }
    Scenario::RouteSet rs;
    rs.name = std::move(name);
    std::string const rp = child(p, "routes");
    auto const ra = array(*routes, rp, "a list of routes");
    std::set<std::pair<std::string, IpGenRouteKey>> keys;
    std::set<MrouteLib::PortVlanSet const*> seen;
    for (std::size_t j = 0; j < ra.Size(); ++j) {
      MrouteLib::DesiredRoute r = route(ra[j], item(rp, j));
      if (!keys.emplace(r.vrfName().stringValue(), r.key()).second) {
        failWith(item(rp, j), "a route not listed before in this set", "a second " + r.key().pretty());
      }
      rs.routes.push_back(std::move(r));
    }
    for (std::size_t j = 0; j < rs.routes.size(); ++j) {
      if (rs.routes[j].bridge()) continue;
      bool const first = std::none_of(rs.routes.begin(), rs.routes.begin() + static_cast<std::ptrdiff_t>(j),
                                      [&](auto const& o) { return !o.bridge() && o.outputs() == rs.routes[j].outputs(); });
      if (first) ++rs.distinctOutputs;
    }
    s_.routeSets.push_back(std::move(rs));
  }
}

void Loader::traffic(Value const& v, std::string const& path, Scenario::Traffic& t) const {
  knownFields(v, path,
              {"at", "do", "vrf", "source", "group", "vlan", "set", "packets", "bytes", "chip", "expect", "expectForwarded"});
  if (auto const* set = member(v, "set")) {
    t.set = routeSetIndex(*set, child(path, "set"));
    for (char const* f : {"group", "vlan", "vrf", "expect"}) {
      if (auto const* x = member(v, f)) fail(child(path, f), "no such field beside \"set\" (each route gives its own)", x);
    }
    if (auto const* src = member(v, "source")) {
      t.setSource = address(*src, child(path, "source"), "the source address of the set's flows");
    }
  } else {
    t.vrf = declaredVrf(v, path);
    t.group = address(required(v, path, "group", "a group address (or \"set\")"), child(path, "group"),
                      "a multicast group address (\"239.1.1.1\")");
    if (!t.group.isMulticast()) fail(child(path, "group"), "a multicast group address (\"239.1.1.1\")", member(v, "group"));
    t.source = address(required(v, path, "source", "a source address"), child(path, "source"),
                       "a source address of the group's family");
    if (t.source.af() != t.group.af() || t.source.isMulticast()) {
      fail(child(path, "source"), "a source address of the group's family", member(v, "source"));
    }
    if (auto const* vl = member(v, "vlan")) {
      t.vlan = Bridging::VlanIdOrNone(static_cast<std::uint32_t>(
          integer(*vl, child(path, "vlan"), "the VLAN the packets arrive on, 0 to 4094", 0, 4094)));
    }
  }
  if (auto const* n = member(v, "packets")) {
    t.packets = static_cast<std::uint32_t>(integer(*n, child(path, "packets"), "a packet count from 1 to 1000000", 1, 1'000'000));
  }
  if (auto const* b = member(v, "bytes")) {
    t.bytes = static_cast<std::uint32_t>(integer(*b, child(path, "bytes"), "a packet size from 1 to 65535 bytes", 1, 65535));
  }
  if (auto const* c = member(v, "chip")) t.chip = chipNumber(*c, child(path, "chip"));
  if (auto const* e = member(v, "expect")) {
    std::string const ep = child(path, "expect");
    auto const a = array(*e, ep, "a list of the copies each packet gives (\"Ethernet3.100\")");
    std::vector<MrouteLib::PortVlan> copies;
    for (std::size_t i = 0; i < a.Size(); ++i) copies.push_back(portVlan(a[i], item(ep, i)));
    std::sort(copies.begin(), copies.end());
    t.expect = std::move(copies);
  }
  t.expectForwarded = optBool(v, path, "expectForwarded", false);
}

void Loader::config(Value const& v, std::string const& path, Scenario::Config& c) const {
  knownFields(v, path,
              {"at", "do", "zombies", "zombieLifetime", "activityPollingInterval", "allCounter", "counterMode",
               "counterRoutes", "capacity"});
  bool any = false;
  if (auto const* z = member(v, "zombies")) {
    c.zombies = boolean(*z, child(path, "zombies"));
    any = true;
  }
  if (auto const* l = member(v, "zombieLifetime")) {
    c.zombieLifetime = number(*l, child(path, "zombieLifetime"), "a lifetime in seconds from 0 to 3600", 0, 3600);
    any = true;
  }
  if (auto const* i = member(v, "activityPollingInterval")) {
    c.activityPollingInterval = static_cast<std::uint8_t>(
        integer(*i, child(path, "activityPollingInterval"), "an interval in seconds from 1 to 255", 1, 255));
    any = true;
  }
  if (auto const* a = member(v, "allCounter")) {
    c.allCounter = boolean(*a, child(path, "allCounter"));
    any = true;
  }
  if (auto const* m = member(v, "counterMode")) {
    c.counterMode = counterMode(*m, child(path, "counterMode"));
    any = true;
  }
  if (auto const* cr = member(v, "counterRoutes")) {
    std::string const p = child(path, "counterRoutes");
    auto const a = array(*cr, p, "a list of routes to count ({\"group\": ..., \"source\": ...})");
    for (std::size_t i = 0; i < a.Size(); ++i) {
      std::string const ip = item(p, i);
      object(a[i], ip, "a route to count ({\"vrf\": ..., \"source\": ..., \"group\": ...})");
      knownFields(a[i], ip, {"vrf", "source", "group"});
      c.counterRoutes.push_back({declaredVrf(a[i], ip), routeKey(a[i], ip)});
    }
    any = true;
  }
  if (auto const* cap = member(v, "capacity")) {
    std::string const p = child(path, "capacity");
    object(*cap, p, "table capacities ({\"chip\": 0, \"routes\": ..., \"replicationEntries\": ...})");
    knownFields(*cap, p, {"chip", "routes", "boundaries", "replicationEntries"});
    if (auto const* chip = member(*cap, "chip")) c.capacityChip = chipNumber(*chip, child(p, "chip"));
    Scenario::Config::Capacity capacity;
    std::string const size = "a table size from 0 to " + std::to_string(kMaxTableSize);
    if (auto const* x = member(*cap, "routes")) capacity.routes = integer(*x, child(p, "routes"), size, 0, kMaxTableSize);
    if (auto const* x = member(*cap, "boundaries")) {
      capacity.boundaries = integer(*x, child(p, "boundaries"), size, 0, kMaxTableSize);
    }
    if (auto const* x = member(*cap, "replicationEntries")) {
      capacity.replicationEntries = integer(*x, child(p, "replicationEntries"), size, 0, kMaxTableSize);
    }
    c.capacity = capacity;
    any = true;
  }
  if (!any) {
    failWith(path, "at least one setting (zombies, zombieLifetime, activityPollingInterval, allCounter, counterMode, "
                   "counterRoutes, capacity)",
             "none");
  }
}

void Loader::fault(Value const& v, std::string const& path, Scenario::Fault& f) const {
  knownFields(v, path, {"at", "do", "chip", "table", "failNext", "forceFull"});
  if (auto const* c = member(v, "chip")) f.chip = chipNumber(*c, child(path, "chip"));
  f.table = table(required(v, path, "table", "one of \"route\", \"boundary\", \"replication\""), child(path, "table"));
  if (auto const* n = member(v, "failNext")) {
    f.failNext = static_cast<std::uint32_t>(
        integer(*n, child(path, "failNext"), "a number of allocations to refuse, 0 to 1000000", 0, 1'000'000));
  }
  if (auto const* full = member(v, "forceFull")) f.forceFull = boolean(*full, child(path, "forceFull"));
  if (!f.failNext && !f.forceFull) failWith(path, "\"failNext\" or \"forceFull\"", "neither");
}

void Loader::events(Value const& v, std::string const& path) {
  auto const a = array(v, path, "a list of events");
  Vex::Seconds previous = 0;
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, "an event ({\"at\": 1.0, \"do\": \"addRoutes\", ...})");
    Scenario::Event e;
    e.path = p;
    Value const& at = required(a[i], p, "at", "the event's time in seconds");
    if (!at.IsNumber()) fail(child(p, "at"), "a number of seconds >= 0", &at);
    std::ostringstream bound;
    bound << "a number of seconds >= " << previous << (i > 0 ? " (the time of the event before)" : "");
    e.at = number(at, child(p, "at"), bound.str(), previous, 1e9);
    previous = e.at;
    char const* const kinds =
        "one of \"addRoutes\", \"removeRoutes\", \"addRoute\", \"removeRoute\", \"interfaceDown\", \"interfaceUp\", "
        "\"traffic\", \"config\", \"fault\", \"restart\"";
    Value const& d = required(a[i], p, "do", kinds);
    std::string const kind = string(d, child(p, "do"), kinds);
    if (kind == "addRoutes" || kind == "removeRoutes") {
      e.kind = kind == "addRoutes" ? EventKind::addRoutes : EventKind::removeRoutes;
      knownFields(a[i], p, {"at", "do", "set", "count"});
      e.set = routeSetIndex(required(a[i], p, "set", "the name of a route set"), child(p, "set"));
      if (auto const* c = member(a[i], "count")) {
        std::size_t const size = s_.routeSets[e.set].routes.size();
        e.count = integer(*c, child(p, "count"), "a route count from 0 to " + std::to_string(size) + " (the set's size)", 0, size);
      }
    } else if (kind == "addRoute") {
      e.kind = EventKind::addRoute;
      knownFields(a[i], p, {"at", "do", "route"});
      e.route = route(required(a[i], p, "route", "a route"), child(p, "route"));
    } else if (kind == "removeRoute") {
      e.kind = EventKind::removeRoute;
      knownFields(a[i], p, {"at", "do", "vrf", "source", "group"});
      e.vrf = declaredVrf(a[i], p);
      e.key = routeKey(a[i], p);
    } else if (kind == "interfaceDown" || kind == "interfaceUp") {
      e.kind = kind == "interfaceDown" ? EventKind::interfaceDown : EventKind::interfaceUp;
      knownFields(a[i], p, {"at", "do", "interface"});
      Value const& intf = required(a[i], p, "interface", "a declared Ethernet interface");
      e.intf = ethernet(intf, child(p, "interface"));
      if (!ethernetSet_.contains(e.intf)) fail(child(p, "interface"), "a declared Ethernet interface", &intf);
    } else if (kind == "traffic") {
      e.kind = EventKind::traffic;
      traffic(a[i], p, e.traffic);
    } else if (kind == "config") {
      e.kind = EventKind::config;
      config(a[i], p, e.config);
    } else if (kind == "fault") {
      e.kind = EventKind::fault;
      fault(a[i], p, e.fault);
    } else if (kind == "restart") {
      e.kind = EventKind::restart;
      knownFields(a[i], p, {"at", "do"});
    } else {
      fail(child(p, "do"), kinds, &d);
    }
    s_.events.push_back(std::move(e));
  }
}

Scenario Loader::run(std::string_view text) {
  rapidjson::Document const doc = parse(text);
  Value const& root = doc;
  if (!root.IsObject()) fail("(top level)", "a JSON object", &root);
  knownFields(root, "",
              {"name", "description", "chips", "interfaces", "vrfs", "zombies", "aging", "counters", "routeSets",
               "events", "end"});
  if (auto const* n = member(root, "name")) {
    s_.name = string(*n, "name", "the scenario's name");
  } else {
    std::string stem = file().substr(file().find_last_of('/') + 1);
    s_.name = stem.substr(0, stem.rfind(".json") == std::string::npos ? stem.size() : stem.rfind(".json"));
  }
  if (auto const* d = member(root, "description")) s_.description = string(*d, "description", "a description");
  if (auto const* c = member(root, "chips")) chips(*c, "chips");
  if (auto const* i = member(root, "interfaces")) interfaces(*i, "interfaces");
  if (auto const* v = member(root, "vrfs")) {
    vrfs(*v, "vrfs");
  } else {
    s_.vrfs.push_back({L3::VrfName("default"), 0});
  }
  if (auto const* z = member(root, "zombies")) zombies(*z, "zombies", s_.zombiesEnabled, s_.zombieLifetime);
  if (auto const* a = member(root, "aging")) aging(*a, "aging", s_.activityPollingInterval);
  if (auto const* c = member(root, "counters")) counters(*c, "counters");
  if (auto const* r = member(root, "routeSets")) routeSets(*r, "routeSets");
  events(required(root, "", "events", "a list of events"), "events");
  Vex::Seconds const last = s_.events.empty() ? 0 : s_.events.back().at;
  s_.end = last + s_.zombieLifetime + 1;
  if (auto const* e = member(root, "end")) {
    std::ostringstream what;
    what << "a time in seconds >= " << last << " (the last event's)";
    s_.end = number(*e, "end", what.str(), last, 1e9);
  }
  return std::move(s_);
}

}  // namespace

Scenario ScenarioLoader::parse(std::string_view text, std::string const& fileName) { return Loader(fileName).run(text); }

Scenario ScenarioLoader::load(std::string const& path) {
  return parse(JsonReader::read(path, "a readable scenario file"), path);
}

}  // namespace FalSim
