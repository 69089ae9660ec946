#include "sim/scenario/TrafficReader.h"

#include <algorithm>

namespace FalSim {

namespace {

using Value = JsonReader::Value;
using DropReason = ReferenceChip::DropReason;

char const* familyName(Netcore::AddressFamily af) { return af == Netcore::AddressFamily::ipv6 ? "IPv6" : "IPv4"; }

}  // namespace

void TrafficReader::read(Value const& v, std::string const& path, Scenario::Traffic& t) const {
  auto const child = JsonReader::child;
  in_.knownFields(v, path,
                  {"at", "do", "vrf", "source", "group", "vlan", "set", "packets", "bytes", "chip", "expect",
                   "expectForwarded", "expectDropped"});
  if (in_.member(v, "set")) {
    flowOfSet(v, path, t);
  } else {
    oneFlow(v, path, t);
  }
  if (auto const* n = in_.member(v, "packets")) {
    t.packets = static_cast<std::uint32_t>(
        in_.integer(*n, child(path, "packets"), "a packet count from 1 to 1000000", 1, 1'000'000));
  }
  if (auto const* b = in_.member(v, "bytes")) {
    t.bytes = static_cast<std::uint32_t>(in_.integer(*b, child(path, "bytes"), "a packet size from 1 to 65535 bytes", 1, 65535));
  }
  if (auto const* c = in_.member(v, "chip")) t.chip = in_.chipNumber(*c, child(path, "chip"));
  expectations(v, path, t);
}

void TrafficReader::flowOfSet(Value const& v, std::string const& path, Scenario::Traffic& t) const {
  auto const child = JsonReader::child;
  t.set = in_.routeSetIndex(*in_.member(v, "set"), child(path, "set"));
  for (char const* f : {"group", "vlan", "vrf", "expect"}) {
    if (auto const* x = in_.member(v, f)) in_.fail(child(path, f), "no such field beside \"set\" (each route gives its own)", x);
  }
  auto const* src = in_.member(v, "source");
  if (!src) return;
  auto const& routes = in_.scenario().routeSets[*t.set].routes;
  bool v4 = false, v6 = false;
  for (auto const& r : routes) {
    if (r.bridge()) continue;
    (r.key().af() == Netcore::AddressFamily::ipv6 ? v6 : v4) = true;
  }
  std::string const& name = in_.scenario().routeSets[*t.set].name;
  if (v4 && v6) {
    in_.fail(child(path, "source"), "no source for set " + JsonReader::quoted(name) + ", whose routes are of both families",
             src);
  }
  Netcore::AddressFamily const af = v6 ? Netcore::AddressFamily::ipv6 : Netcore::AddressFamily::ipv4;
  std::string const what = std::string("a source address of the family of set ") + JsonReader::quoted(name) + "'s routes (" +
                           familyName(af) + ")";
  t.setSource = in_.address(*src, child(path, "source"), what);
  if (t.setSource.af() != af || t.setSource.isMulticast()) in_.fail(child(path, "source"), what, src);
}

void TrafficReader::oneFlow(Value const& v, std::string const& path, Scenario::Traffic& t) const {
  auto const child = JsonReader::child;
  t.vrf = in_.declaredVrf(v, path);
  char const* const groupWhat = "a multicast group address (\"239.1.1.1\")";
  t.group = in_.address(in_.required(v, path, "group", "a group address (or \"set\")"), child(path, "group"), groupWhat);
  if (!t.group.isMulticast()) in_.fail(child(path, "group"), groupWhat, in_.member(v, "group"));
  std::string const sourceWhat = std::string("a source address of the group's family (") + familyName(t.group.af()) + ")";
  t.source = in_.address(in_.required(v, path, "source", sourceWhat), child(path, "source"), sourceWhat);
  if (t.source.af() != t.group.af() || t.source.isMulticast()) in_.fail(child(path, "source"), sourceWhat, in_.member(v, "source"));
  if (auto const* vl = in_.member(v, "vlan")) {
    if (vl->IsUint64() && vl->GetUint64() == 0) {
      in_.fail(child(path, "vlan"), "a VLAN declared in interfaces.vlans (leave \"vlan\" out for untagged packets)", vl);
    }
    t.vlan = in_.declaredVlan(*vl, child(path, "vlan"));
  }
}

void TrafficReader::expectations(Value const& v, std::string const& path, Scenario::Traffic& t) const {
  auto const child = JsonReader::child;
  if (auto const* e = in_.member(v, "expect")) {
    std::string const ep = child(path, "expect");
    auto const a = in_.array(*e, ep, "a list of the copies each packet gives (\"Ethernet3.100\")");
    auto copies = in_.distinct<MrouteLib::PortVlan>(
        a, ep, "a copy", [&](Value const& x, std::string const& xp) { return in_.output(x, xp, "a copy"); });
    std::sort(copies.begin(), copies.end());
    t.expect = std::move(copies);
  }
  if (auto const* f = in_.member(v, "expectForwarded")) {
    if (!in_.boolean(*f, child(path, "expectForwarded"))) {
      in_.failWith(child(path, "expectForwarded"), "true (or \"expectDropped\" for packets that must be dropped)", "false");
    }
    t.expectForwarded = true;
  }
  if (auto const* d = in_.member(v, "expectDropped")) {
    std::string const dp = child(path, "expectDropped");
    char const* const what =
        "the reason every packet is dropped: one of \"noRoute\", \"rpfFail\", \"boundary\", \"noEntry\"";
    std::string const reason = in_.string(*d, dp, what);
    for (DropReason r : {DropReason::noRoute, DropReason::rpfFail, DropReason::boundary, DropReason::noEntry}) {
      if (reason == dropReasonName(r)) t.expectDropped = r;
    }
    if (!t.expectDropped) in_.fail(dp, what, d);
    for (char const* f : {"expect", "expectForwarded"}) {
      if (auto const* x = in_.member(v, f)) in_.fail(child(path, f), "no such field beside \"expectDropped\"", x);
    }
  }
}

}  // namespace FalSim
