#include "sim/scenario/RouteReader.h"

namespace FalSim {

MrouteLib::DesiredRoute RouteReader::read(JsonReader::Value const& v, std::string const& path) const {
  auto const child = JsonReader::child;
  auto const item = JsonReader::item;
  in_.object(v, path, "a route ({\"group\": \"239.1.1.1\", \"acceptingVlan\": 100, \"outputs\": [...]})");
  in_.knownFields(v, path,
                  {"vrf", "source", "group", "acceptingVlan", "outputs", "frr", "toCpu", "fastdrop", "noRpf", "bridge",
                   "rpaId"});
  MrouteLib::DesiredRoute r(in_.declaredVrf(v, path), in_.routeKey(v, path));
  r.noRpfIs(in_.optBool(v, path, "noRpf", false));
  r.bridgeIs(in_.optBool(v, path, "bridge", false));
  r.fastdropIs(in_.optBool(v, path, "fastdrop", false));
  if (r.noRpf() && r.bridge()) {
    in_.failWith(child(path, "noRpf"), "false on a bridge (boundary) entry, which always has an accepting VLAN", "true");
  }
  JsonReader::Value const* accepting = in_.member(v, "acceptingVlan");
  if (r.noRpf()) {
    if (accepting) in_.fail(child(path, "acceptingVlan"), "no accepting VLAN on a noRpf route", accepting);
  } else {
    if (!accepting) in_.fail(child(path, "acceptingVlan"), "a VLAN declared in interfaces.vlans (or \"noRpf\": true)");
    Bridging::VlanId const id = in_.declaredVlan(*accepting, child(path, "acceptingVlan"));
    r.acceptingVlanIs(id);
    r.acceptingIntfIdIs(Netcore::IntfId::vlan(id.value()));
  }
  if (auto const* id = in_.member(v, "rpaId")) {
    char const* const what = "an RPA index from 0 to 65533, or 65535 for none (65534 is the invalid index)";
    auto const rpa = in_.integer(*id, child(path, "rpaId"), what, 0, 0xFFFF);
    if (rpa == kRpaIdInvalid) in_.fail(child(path, "rpaId"), what, id);
    r.rpaIdIs(static_cast<std::uint16_t>(rpa));
  }
  MrouteLib::PortVlanSet outputs;
  if (auto const* o = in_.member(v, "outputs")) {
    std::string const p = child(path, "outputs");
    if (r.bridge()) in_.fail(p, "no outputs on a bridge (boundary) entry", o);
    auto const a = in_.array(*o, p, "a list of outputs (\"Ethernet3.100\")");
    for (std::size_t i = 0; i < a.Size(); ++i) {
      MrouteLib::PortVlan const pv = in_.output(a[i], item(p, i));
      if (outputs.portVlan(pv)) in_.fail(item(p, i), "an output not listed before", &a[i]);
      outputs.portVlanIs(pv);
    }
  }
  if (auto const* f = in_.member(v, "frr")) {
    if (r.bridge()) in_.fail(child(path, "frr"), "no fast reroute on a bridge (boundary) entry", f);
    frr(*f, child(path, "frr"), outputs);
  }
  outputs.toCpuIs(in_.optBool(v, path, "toCpu", false));
  if (r.bridge() && outputs.toCpu()) in_.failWith(child(path, "toCpu"), "false on a bridge (boundary) entry", "true");
  r.outputsIs(std::move(outputs));
  return r;
}

void RouteReader::frr(JsonReader::Value const& f, std::string const& p, MrouteLib::PortVlanSet& outputs) const {
  auto const child = JsonReader::child;
  auto const item = JsonReader::item;
  in_.object(f, p, "fast-reroute outputs ({\"protected\": \"Ethernet3\", \"backups\": [\"Ethernet5.100\"]})");
  in_.knownFields(f, p, {"protected", "backups", "currentIif"});
  Netcore::IntfId const prot =
      in_.declaredEthernet(in_.required(f, p, "protected", "the protected Ethernet interface"), child(p, "protected"));
  outputs.intfIdIs(prot);
  outputs.currentIifIs(prot);
  if (auto const* iif = in_.member(f, "currentIif")) outputs.currentIifIs(in_.declaredEthernet(*iif, child(p, "currentIif")));
  std::string const bp = child(p, "backups");
  JsonReader::Value const& backups = in_.required(f, p, "backups", "a list of backup outputs");
  auto const a = in_.array(backups, bp, "a list of backup outputs (\"Ethernet5.100\")");
  if (a.Size() == 0) in_.fail(bp, "at least one backup output", &backups);
  for (std::size_t i = 0; i < a.Size(); ++i) {
    MrouteLib::PortVlan const pv = in_.output(a[i], item(bp, i), "a backup output");
    if (outputs.portVlanFrr(pv)) in_.fail(item(bp, i), "a backup output not listed before", &a[i]);
    outputs.portVlanFrrIs(pv);
  }
}

}  // namespace FalSim
