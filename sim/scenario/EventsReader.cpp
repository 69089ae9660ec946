#include "sim/scenario/EventsReader.h"

#include <sstream>

#include "sim/scenario/ConfigReader.h"
#include "sim/scenario/FaultReader.h"
#include "sim/scenario/RouteReader.h"
#include "sim/scenario/TrafficReader.h"

namespace FalSim {

namespace {

using Value = JsonReader::Value;
using EventKind = Scenario::EventKind;

constexpr char const* kKinds =
    "one of \"addRoutes\", \"removeRoutes\", \"addRoute\", \"removeRoute\", \"interfaceDown\", \"interfaceUp\", "
    "\"traffic\", \"config\", \"fault\", \"restart\"";

}  // namespace

void EventsReader::read(Value const& v, std::string const& path) {
  auto& events = in_.scenario().events;
  auto const a = in_.array(v, path, "a list of events");
  events.reserve(a.Size());
  Vex::Seconds previous = 0;
  for (std::size_t i = 0; i < a.Size(); ++i) {
    events.push_back(event(a[i], JsonReader::item(path, i), previous, i == 0));
    previous = events.back().at;
  }
}

Scenario::Event EventsReader::event(Value const& v, std::string const& p, Vex::Seconds previous, bool first) const {
  auto const child = JsonReader::child;
  in_.object(v, p, "an event ({\"at\": 1.0, \"do\": \"addRoutes\", ...})");
  Scenario::Event e;
  e.path = p;
  Value const& at = in_.required(v, p, "at", "the event's time in seconds");
  if (!at.IsNumber()) in_.fail(child(p, "at"), "a number of seconds >= 0", &at);
  std::ostringstream bound;
  bound << "a number of seconds >= " << previous << (first ? "" : " (the time of the event before)");
  e.at = in_.number(at, child(p, "at"), bound.str(), previous, 1e9);
  Value const& d = in_.required(v, p, "do", kKinds);
  std::string const kind = in_.string(d, child(p, "do"), kKinds);
  if (kind == "addRoutes" || kind == "removeRoutes") {
    e.kind = kind == "addRoutes" ? EventKind::addRoutes : EventKind::removeRoutes;
    in_.knownFields(v, p, {"at", "do", "set", "count"});
    e.set = in_.routeSetIndex(in_.required(v, p, "set", "the name of a route set"), child(p, "set"));
    if (auto const* c = in_.member(v, "count")) {
      std::size_t const size = in_.scenario().routeSets[e.set].routes.size();
      e.count = in_.integer(*c, child(p, "count"), "a route count from 0 to " + std::to_string(size) + " (the set's size)", 0,
                            size);
    }
  } else if (kind == "addRoute") {
    e.kind = EventKind::addRoute;
    in_.knownFields(v, p, {"at", "do", "route"});
    e.route = RouteReader(in_).read(in_.required(v, p, "route", "a route"), child(p, "route"));
  } else if (kind == "removeRoute") {
    e.kind = EventKind::removeRoute;
    in_.knownFields(v, p, {"at", "do", "vrf", "source", "group"});
    e.vrf = in_.declaredVrf(v, p);
    e.key = in_.routeKey(v, p);
  } else if (kind == "interfaceDown" || kind == "interfaceUp") {
    e.kind = kind == "interfaceDown" ? EventKind::interfaceDown : EventKind::interfaceUp;
    in_.knownFields(v, p, {"at", "do", "interface"});
    e.intf = in_.declaredEthernet(in_.required(v, p, "interface", "a declared Ethernet interface"), child(p, "interface"));
  } else if (kind == "traffic") {
    e.kind = EventKind::traffic;
    TrafficReader(in_).read(v, p, e.traffic);
  } else if (kind == "config") {
    e.kind = EventKind::config;
    ConfigReader(in_).read(v, p, e.config);
  } else if (kind == "fault") {
    e.kind = EventKind::fault;
    FaultReader(in_).read(v, p, e.fault);
  } else if (kind == "restart") {
    e.kind = EventKind::restart;
    in_.knownFields(v, p, {"at", "do"});
  } else {
    in_.fail(child(p, "do"), kKinds, &d);
  }
  return e;
}

}  // namespace FalSim
