#include "sim/scenario/RouteSetsReader.h"

#include <algorithm>
#include <set>
#include <utility>

#include "absl/container/flat_hash_set.h"
#include "sim/scenario/GeneratorReader.h"
#include "sim/scenario/RouteReader.h"

namespace FalSim {

void RouteSetsReader::read(JsonReader::Value const& v, std::string const& path) {
  auto const child = JsonReader::child;
  auto& sets = in_.scenario().routeSets;
  auto const a = in_.array(v, path, "a list of route sets");
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = JsonReader::item(path, i);
    in_.object(a[i], p, "a route set ({\"name\": ..., \"routes\": [...]} or {\"name\": ..., \"generate\": {...}})");
    in_.knownFields(a[i], p, {"name", "routes", "generate"});
    std::string name = in_.string(in_.required(a[i], p, "name", "the route set's name"), child(p, "name"), "the route set's name");
    if (std::any_of(sets.begin(), sets.end(), [&](auto const& rs) { return rs.name == name; })) {
      in_.fail(child(p, "name"), "a route set name not used before", in_.member(a[i], "name"));
    }
    auto const* routes = in_.member(a[i], "routes");
    auto const* gen = in_.member(a[i], "generate");
    if ((routes != nullptr) == (gen != nullptr)) {
      in_.failWith(p, "exactly one of \"routes\" and \"generate\"", routes ? "both" : "neither");
    }
    sets.push_back(gen ? GeneratorReader(in_).read(std::move(name), *gen, child(p, "generate"))
                       : listed(std::move(name), *routes, child(p, "routes")));
  }
}

Scenario::RouteSet RouteSetsReader::listed(std::string name, JsonReader::Value const& routes, std::string const& path) const {
  Scenario::RouteSet rs;
  rs.name = std::move(name);
  auto const a = in_.array(routes, path, "a list of routes");
  RouteReader const reader(in_);
  std::set<std::pair<std::string, Routing::Multicast::Fib::IpGenRouteKey>> keys;
  for (std::size_t j = 0; j < a.Size(); ++j) {
    MrouteLib::DesiredRoute r = reader.read(a[j], JsonReader::item(path, j));
    if (!keys.emplace(r.vrfName().stringValue(), r.key()).second) {
      in_.failWith(JsonReader::item(path, j), "a route not listed before in this set", "a second " + r.key().pretty());
    }
    rs.routes.push_back(std::move(r));
  }
  absl::flat_hash_set<MrouteLib::PortVlanSet> outputs;
  for (auto const& r : rs.routes) {
    if (!r.bridge()) outputs.insert(r.outputs());
  }
  rs.distinctOutputs = outputs.size();
  return rs;
}

}  // namespace FalSim
