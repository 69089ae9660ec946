#include "sim/scenario/GeneratorReader.h"

#include <algorithm>

#include "sim/RouteSetGenerator.h"

namespace FalSim {

namespace {

// "1 VLAN", "3 VLANs".
std::string counted(std::uint64_t n, char const* noun) { return std::to_string(n) + " " + noun + (n == 1 ? "" : "s"); }

}  // namespace

Scenario::RouteSet GeneratorReader::read(std::string name, JsonReader::Value const& v, std::string const& path) const {
  using Value = JsonReader::Value;
  auto const child = JsonReader::child;
  auto const declaredVlan = [&](Value const& x, std::string const& xp) { return in_.declaredVlan(x, xp); };
  in_.object(v, path, "a generator ({\"count\": 1000, \"diversity\": 8, ...})");
  in_.knownFields(v, path,
                  {"count", "diversity", "seed", "vrf", "source", "groupBase", "acceptingVlan", "ports", "portsPerSet",
                   "outputVlans", "frr"});
  RouteSetGenerator::Shape shape;
  std::string const countWhat = "a route count from 1 to " + std::to_string(kMaxRoutesPerSet);
  shape.count = in_.integer(in_.required(v, path, "count", countWhat), child(path, "count"), countWhat, 1, kMaxRoutesPerSet);
  if (auto const* seed = in_.member(v, "seed")) {
    shape.seed = in_.integer(*seed, child(path, "seed"), "a seed from 0 to 2^64-1", 0, ~0ULL);
  }
  shape.vrf = in_.declaredVrf(v, path);
  Netcore::IpGenPrefix const base =
      in_.group(in_.required(v, path, "groupBase", "the first group address"), child(path, "groupBase"));
  if (!base.isHost()) in_.fail(child(path, "groupBase"), "a group address, not a prefix", in_.member(v, "groupBase"));
  shape.groupBase = base.address();
  Netcore::IpGenAddr const last = RouteSetGenerator::groupOf(shape.groupBase, shape.count - 1);
  bool const wraps = shape.groupBase.isV4() && std::uint64_t{shape.groupBase.v4Addr()} + shape.count - 1 > 0xFFFFFFFFULL;
  if (wraps || !last.isMulticast()) {
    in_.failWith(child(path, "count"), "a count whose groups stay multicast (from " + shape.groupBase.stringValue() + ")",
                 "a last group of " + last.stringValue());
  }
  shape.source = in_.source(in_.member(v, "source"), child(path, "source"), shape.groupBase.af());

  std::string const ap = child(path, "acceptingVlan");
  Value const& accepting = in_.required(v, path, "acceptingVlan", "a VLAN declared in interfaces.vlans, or a list of them");
  if (accepting.IsArray()) {
    auto const a = accepting.GetArray();
    if (a.Size() == 0) in_.fail(ap, "at least one accepting VLAN", &accepting);
    shape.acceptingVlans = in_.distinct<Bridging::VlanId>(a, ap, "an accepting VLAN", declaredVlan);
  } else {
    shape.acceptingVlans.push_back(in_.declaredVlan(accepting, ap));
  }

  if (auto const* ports = in_.member(v, "ports")) {
    std::string const pp = child(path, "ports");
    auto const a = in_.array(*ports, pp, "a list of declared Ethernet ports");
    shape.ports = in_.distinct<Netcore::IntfId>(a, pp, "a port", [&](Value const& x, std::string const& xp) {
      return in_.declaredEthernet(x, xp);
    });
  } else {
    shape.ports = in_.scenario().ethernet;
  }
  if (shape.ports.empty()) in_.fail(child(path, "ports"), "at least one Ethernet port (declare them in interfaces.ethernet)");
  shape.portsPerSet = std::min<std::size_t>(4, shape.ports.size());
  if (auto const* k = in_.member(v, "portsPerSet")) {
    std::string const what = "a number of ports per set from 1 to " + std::to_string(shape.ports.size());
    shape.portsPerSet = in_.integer(*k, child(path, "portsPerSet"), what, 1, shape.ports.size());
  }
  if (auto const* ov = in_.member(v, "outputVlans")) {
    std::string const op = child(path, "outputVlans");
    auto const a = in_.array(*ov, op, "a list of VLAN ids declared in interfaces.vlans");
    shape.outputVlans = in_.distinct<Bridging::VlanIdOrNone>(a, op, "an output VLAN", declaredVlan);
  }
  if (auto const* f = in_.member(v, "frr")) {
    std::string const p = child(path, "frr");
    in_.object(*f, p, "fast-reroute outputs ({\"protected\": \"Ethernet3\", \"backups\": [\"Ethernet5.100\"]})");
    in_.knownFields(*f, p, {"protected", "backups"});
    RouteSetGenerator::Frr frr;
    frr.protectedIntf =
        in_.declaredEthernet(in_.required(*f, p, "protected", "the protected Ethernet interface"), child(p, "protected"));
    std::string const bp = child(p, "backups");
    Value const& backups = in_.required(*f, p, "backups", "a list of backup outputs");
    auto const a = in_.array(backups, bp, "a list of backup outputs (\"Ethernet5.100\")");
    if (a.Size() == 0) in_.fail(bp, "at least one backup output", &backups);
    frr.backups = in_.distinct<MrouteLib::PortVlan>(a, bp, "a backup output", [&](Value const& x, std::string const& xp) {
      return in_.output(x, xp, "a backup output");
    });
    shape.frr = std::move(frr);
  }

  std::uint64_t const most = RouteSetGenerator::maxDistinct(shape);
  if (auto const* d = in_.member(v, "diversity")) {
    std::uint64_t const limit = std::min<std::uint64_t>(most, shape.count);
    std::string const what = "a number of distinct output sets from 1 to " + std::to_string(limit) + " (" +
                             counted(shape.ports.size(), "port") + ", " + std::to_string(shape.portsPerSet) +
                             " per set, " + counted(std::max<std::size_t>(1, shape.outputVlans.size()), "VLAN") +
                             ", " + counted(shape.count, "route") + ")";
    shape.diversity = in_.integer(*d, child(path, "diversity"), what, 1, limit);
  }
  return RouteSetGenerator::generate(std::move(name), shape);
}

}  // namespace FalSim
