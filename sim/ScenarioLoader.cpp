#include "sim/ScenarioLoader.h"

#include <sstream>
#include <tuple>

#include "sim/scenario/ChipsReader.h"
#include "sim/scenario/EventsReader.h"
#include "sim/scenario/InterfacesReader.h"
#include "sim/scenario/RouteSetsReader.h"
#include "sim/scenario/ScenarioReader.h"

namespace FalSim {

namespace {

using Value = JsonReader::Value;

// The top level, and the sections small enough to read in place: the VRFs,
// zombies, aging and counters. The others have a reader each.
class Loader : ScenarioReader {
 public:
  explicit Loader(std::string file) : ScenarioReader(std::move(file)) {}
  Scenario run(std::string_view text);

 private:
  void vrfs(Value const& v, std::string const& path);
  void counters(Value const& v, std::string const& path);
};

void Loader::vrfs(Value const& v, std::string const& path) {
  auto& vrfs = scenario().vrfs;
  auto const a = array(v, path, "a list of VRFs ({\"name\": \"red\", \"id\": 1})");
  if (a.Size() == 0) fail(path, "at least one VRF", &v);
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const p = item(path, i);
    object(a[i], p, "a VRF ({\"name\": \"red\", \"id\": 1})");
    knownFields(a[i], p, {"name", "id"});
    Scenario::Vrf vrf;
    std::tie(vrf.name, vrf.id) = newVrf(a[i], p, vrfs);
    vrfs.push_back(std::move(vrf));
  }
}

void Loader::counters(Value const& v, std::string const& path) {
  Scenario& s = scenario();
  object(v, path);
  knownFields(v, path, {"all", "mode"});
  s.allCounter = optBool(v, path, "all", s.allCounter);
  if (auto const* m = member(v, "mode")) s.counterMode = counterMode(*m, child(path, "mode"));
}

Scenario Loader::run(std::string_view text) {
  Scenario& s = scenario();
  Value const& root = parse(text);
  if (!root.IsObject()) fail("(top level)", "a JSON object", &root);
  knownFields(root, "",
              {"name", "description", "chips", "interfaces", "vrfs", "zombies", "aging", "counters", "routeSets",
               "events", "end", "sampleInterval"});
  if (auto const* n = member(root, "name")) {
    s.name = string(*n, "name", "the scenario's name");
  } else {
    std::string stem = file().substr(file().find_last_of('/') + 1);
    s.name = stem.substr(0, stem.rfind(".json") == std::string::npos ? stem.size() : stem.rfind(".json"));
  }
  if (auto const* d = member(root, "description")) s.description = string(*d, "description", "a description");
  if (auto const* c = member(root, "chips")) ChipsReader(*this).read(*c, "chips");
  if (auto const* i = member(root, "interfaces")) InterfacesReader(*this).read(*i, "interfaces");
  if (auto const* v = member(root, "vrfs")) {
    vrfs(*v, "vrfs");
  } else {
    s.vrfs.push_back({L3::VrfName("default"), 0});
  }
  if (auto const* z = member(root, "zombies")) zombies(*z, "zombies", s.zombiesEnabled, s.zombieLifetime);
  if (auto const* a = member(root, "aging")) aging(*a, "aging", s.activityPollingInterval);
  if (auto const* c = member(root, "counters")) counters(*c, "counters");
  if (auto const* r = member(root, "routeSets")) RouteSetsReader(*this).read(*r, "routeSets");
  EventsReader(*this).read(required(root, "", "events", "a list of events"), "events");
  Vex::Seconds const last = s.events.empty() ? 0 : s.events.back().at;
  s.end = last + s.zombieLifetime + 1;
  if (auto const* e = member(root, "end")) {
    std::ostringstream what;
    what << "a time in seconds >= " << last << " (the last event's)";
    s.end = number(*e, "end", what.str(), last, 1e9);
  }
  if (auto const* i = member(root, "sampleInterval")) {
    s.sampleInterval = number(*i, "sampleInterval", "a time in seconds between 0.000001 and 1e9", 1e-6, 1e9);
  }
  return std::move(s);
}

}  // namespace

Scenario ScenarioLoader::parse(std::string_view text, std::string const& fileName) { return Loader(fileName).run(text); }

Scenario ScenarioLoader::load(std::string const& path) {
  return parse(JsonReader::read(path, "a readable scenario file"), path);
}

}  // namespace FalSim
