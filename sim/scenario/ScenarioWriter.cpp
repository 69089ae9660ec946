#include "sim/scenario/ScenarioWriter.h"

#include <sstream>

#include "platform/upg/RapidJson.h"
#include "platform/vex/Enum.h"

namespace FalSim {

namespace {

using Writer = rapidjson::PrettyWriter<rapidjson::StringBuffer>;
using EventKind = Scenario::EventKind;

class Out {
 public:
  explicit Out(Writer& w) : w_(w) {}

  void key(char const* k) { w_.Key(k); }
  void str(std::string const& s) { w_.String(s.c_str(), static_cast<rapidjson::SizeType>(s.size())); }
  void str(char const* k, std::string const& s) {
    key(k);
    str(s);
  }
  void uint(char const* k, std::uint64_t v) {
    key(k);
    w_.Uint64(v);
  }
  void num(char const* k, double v) {
    key(k);
    // Whole values as integers: the loader takes them as numbers either way,
    // and fields that must be whole (a capacity) refuse "3.0".
    if (v >= 0 && v < 9e15 && static_cast<double>(static_cast<std::uint64_t>(v)) == v) {
      w_.Uint64(static_cast<std::uint64_t>(v));
    } else {
      w_.Double(v);
    }
  }
  void boolean(char const* k, bool v) {
    key(k);
    w_.Bool(v);
  }
  void startObject() { w_.StartObject(); }
  void endObject() { w_.EndObject(); }
  void startArray(char const* k) {
    key(k);
    w_.StartArray();
  }
  void endArray() { w_.EndArray(); }

  void prefix(char const* k, Netcore::IpGenPrefix const& p, bool starG) {
    if (starG && p.len() == 0) {
      str(k, "*");
    } else {
      str(k, p.isHost() ? p.address().stringValue() : p.stringValue());
    }
  }
  void key(L3::VrfName const& vrf, Routing::Multicast::Fib::IpGenRouteKey const& k) {
    str("vrf", vrf.stringValue());
    prefix("source", k.source(), true);
    prefix("group", k.group(), false);
  }
  void portVlans(char const* k, MrouteLib::PortVlanSet::PortVlanColl const& pvs) {
    startArray(k);
    for (auto const& pv : pvs) str(pv.stringValue());
    endArray();
  }

  void route(MrouteLib::DesiredRoute const& r) {
    startObject();
    key(r.vrfName(), r.key());
    if (!r.noRpf()) uint("acceptingVlan", r.acceptingVlan().value());
    auto const& o = r.outputs();
    if (!r.bridge()) portVlans("outputs", o.portVlan());
    if (!o.intfId().isEmpty()) {
      key("frr");
      startObject();
      str("protected", o.intfId().stringValue());
      portVlans("backups", o.portVlanFrr());
      if (o.currentIif() != o.intfId()) str("currentIif", o.currentIif().stringValue());
      endObject();
    }
    if (o.toCpu()) boolean("toCpu", true);
    if (r.fastdrop()) boolean("fastdrop", true);
    if (r.noRpf()) boolean("noRpf", true);
    if (r.bridge()) boolean("bridge", true);
    if (r.rpaId() != MrouteLib::DesiredRoute::kRpaIdNone) uint("rpaId", r.rpaId());
    endObject();
  }

  void traffic(Scenario const& s, Scenario::Traffic const& t) {
    if (t.set) {
      str("set", s.routeSets[*t.set].name);
      if (t.setSource.af() != Netcore::AddressFamily::ipunknown) str("source", t.setSource.stringValue());
    } else {
      str("vrf", t.vrf.stringValue());
      str("source", t.source.stringValue());
      str("group", t.group.stringValue());
      if (!t.vlan.isNone()) uint("vlan", t.vlan.value());
    }
    if (t.packets != 1) uint("packets", t.packets);
    if (t.bytes != 64) uint("bytes", t.bytes);
    if (t.chip) uint("chip", *t.chip);
    if (t.expect) {
      startArray("expect");
      for (auto const& pv : *t.expect) str(pv.stringValue());
      endArray();
    }
    if (t.expectForwarded) boolean("expectForwarded", true);
    if (t.expectDropped) str("expectDropped", dropReasonName(*t.expectDropped));
  }

  void config(Scenario::Config const& c) {
    if (c.zombies) boolean("zombies", *c.zombies);
    if (c.zombieLifetime) num("zombieLifetime", *c.zombieLifetime);
    if (c.activityPollingInterval) uint("activityPollingInterval", *c.activityPollingInterval);
    if (c.allCounter) boolean("allCounter", *c.allCounter);
    if (c.counterMode) str("counterMode", Vex::enumName(*c.counterMode));
    if (!c.counterRoutes.empty()) {
      startArray("counterRoutes");
      for (auto const& r : c.counterRoutes) {
        startObject();
        key(r.vrf, r.key);
        endObject();
      }
      endArray();
    }
    if (c.capacity) {
      key("capacity");
      startObject();
      if (c.capacityChip) uint("chip", *c.capacityChip);
      if (c.capacity->routes) uint("routes", *c.capacity->routes);
      if (c.capacity->boundaries) uint("boundaries", *c.capacity->boundaries);
      if (c.capacity->replicationEntries) uint("replicationEntries", *c.capacity->replicationEntries);
      endObject();
    }
  }

  void event(Scenario const& s, Scenario::Event const& e) {
    startObject();
    num("at", e.at);
    str("do", eventKindName(e.kind));
    switch (e.kind) {
      case EventKind::addRoutes:
      case EventKind::removeRoutes:
        str("set", s.routeSets[e.set].name);
        if (e.count) uint("count", *e.count);
        break;
      case EventKind::addRoute:
        key("route");
        route(e.route);
        break;
      case EventKind::removeRoute:
        key(e.vrf, e.key);
        break;
      case EventKind::interfaceDown:
      case EventKind::interfaceUp:
        str("interface", e.intf.stringValue());
        break;
      case EventKind::traffic:
        traffic(s, e.traffic);
        break;
      case EventKind::config:
        config(e.config);
        break;
      case EventKind::fault:
        if (e.fault.chip) uint("chip", *e.fault.chip);
        if (e.fault.transaction) {
          str("transaction", operationName(*e.fault.transaction));
          if (e.fault.failNext) uint("failNext", *e.fault.failNext);
          if (e.fault.probability) num("probability", *e.fault.probability);
          break;
        }
        str("table", e.fault.table == ReferenceChip::Table::route      ? "route"
                     : e.fault.table == ReferenceChip::Table::boundary ? "boundary"
                                                                       : "replication");
        if (e.fault.failNext) uint("failNext", *e.fault.failNext);
        if (e.fault.forceFull) boolean("forceFull", *e.fault.forceFull);
        break;
      case EventKind::restart:
        break;
    }
    endObject();
  }

 private:
  Writer& w_;
};

}  // namespace

void ScenarioWriter::write(Scenario const& s, std::ostream& os) {
  rapidjson::StringBuffer buf;
  Writer w(buf);
  w.SetIndent(' ', 2);
  w.SetFormatOptions(rapidjson::kFormatSingleLineArray);
  Out out(w);
  out.startObject();
  out.str("name", s.name);
  if (!s.description.empty()) out.str("description", s.description);

  out.key("chips");
  out.startObject();
  out.uint("count", s.chips.count);
  out.uint("routes", s.chips.capacity.routes);
  out.uint("boundaries", s.chips.capacity.boundaries);
  out.uint("replicationEntries", s.chips.capacity.replicationEntries);
  out.num("operationCost", s.chips.operationCost);
  if (s.chips.kernel) out.str("chip", "kernel");
  out.str("flavour", s.chips.flavour == Scenario::Flavour::async ? "async" : "sync");
  if (!s.chips.otherFlavour.empty()) {
    out.startArray("otherFlavour");
    for (std::uint32_t c : s.chips.otherFlavour) w.Uint(c);
    out.endArray();
  }
  out.num("transactionLatency", s.chips.transactionLatency);
  out.uint("seed", s.chips.seed);
  out.endObject();

  out.key("interfaces");
  out.startObject();
  out.startArray("ethernet");
  for (auto const& e : s.ethernet) out.str(e.stringValue());
  out.endArray();
  out.startArray("vlans");
  for (auto const& v : s.vlans) w.Uint(v.vlan.value());
  out.endArray();
  out.endObject();

  out.startArray("vrfs");
  for (auto const& v : s.vrfs) {
    out.startObject();
    out.str("name", v.name.stringValue());
    out.uint("id", v.id);
    out.endObject();
  }
  out.endArray();

  out.key("zombies");
  out.startObject();
  out.boolean("enabled", s.zombiesEnabled);
  out.num("lifetime", s.zombieLifetime);
  out.endObject();
  out.key("aging");
  out.startObject();
  out.uint("activityPollingInterval", s.activityPollingInterval);
  out.endObject();
  out.key("counters");
  out.startObject();
  out.boolean("all", s.allCounter);
  out.str("mode", Vex::enumName(s.counterMode));
  out.endObject();

  out.startArray("routeSets");
  for (auto const& rs : s.routeSets) {
    out.startObject();
    out.str("name", rs.name);
    out.startArray("routes");
    for (auto const& r : rs.routes) out.route(r);
    out.endArray();
    out.endObject();
  }
  out.endArray();

  out.startArray("events");
  for (auto const& e : s.events) out.event(s, e);
  out.endArray();
  out.num("end", s.end);
  out.endObject();
  os << buf.GetString() << '\n';
}

std::string ScenarioWriter::text(Scenario const& scenario) {
  std::ostringstream os;
  write(scenario, os);
  return os.str();
}

}  // namespace FalSim
