#include "sim/scenario/ConfigReader.h"

namespace FalSim {

using Value = JsonReader::Value;

void ConfigReader::read(Value const& v, std::string const& path, Scenario::Config& c) const {
  auto const child = JsonReader::child;
  in_.knownFields(v, path,
                  {"at", "do", "zombies", "zombieLifetime", "activityPollingInterval", "allCounter", "counterMode",
                   "counterRoutes", "capacity"});
  if (auto const* z = in_.member(v, "zombies")) c.zombies = in_.boolean(*z, child(path, "zombies"));
  if (auto const* l = in_.member(v, "zombieLifetime")) {
    c.zombieLifetime = in_.number(*l, child(path, "zombieLifetime"), "a lifetime in seconds from 0 to 3600", 0, 3600);
  }
  if (auto const* i = in_.member(v, "activityPollingInterval")) {
    c.activityPollingInterval = static_cast<std::uint8_t>(
        in_.integer(*i, child(path, "activityPollingInterval"), "an interval in seconds from 1 to 255", 1, 255));
  }
  if (auto const* a = in_.member(v, "allCounter")) c.allCounter = in_.boolean(*a, child(path, "allCounter"));
  if (auto const* m = in_.member(v, "counterMode")) c.counterMode = in_.counterMode(*m, child(path, "counterMode"));
  if (auto const* cr = in_.member(v, "counterRoutes")) counterRoutes(*cr, child(path, "counterRoutes"), c);
  if (auto const* cap = in_.member(v, "capacity")) capacity(*cap, child(path, "capacity"), c);
  bool const any = c.zombies || c.zombieLifetime || c.activityPollingInterval || c.allCounter || c.counterMode ||
                   in_.member(v, "counterRoutes") || c.capacity;
  if (!any) {
    in_.failWith(path, "at least one setting (zombies, zombieLifetime, activityPollingInterval, allCounter, counterMode, "
                       "counterRoutes, capacity)",
                 "none");
  }
}

void ConfigReader::counterRoutes(Value const& v, std::string const& p, Scenario::Config& c) const {
  auto const a = in_.array(v, p, "a list of routes to count ({\"group\": ..., \"source\": ...})");
  for (std::size_t i = 0; i < a.Size(); ++i) {
    std::string const ip = JsonReader::item(p, i);
    in_.object(a[i], ip, "a route to count ({\"vrf\": ..., \"source\": ..., \"group\": ...})");
    in_.knownFields(a[i], ip, {"vrf", "source", "group"});
    c.counterRoutes.push_back({in_.declaredVrf(a[i], ip), in_.routeKey(a[i], ip)});
  }
}

void ConfigReader::capacity(Value const& v, std::string const& p, Scenario::Config& c) const {
  auto const child = JsonReader::child;
  in_.object(v, p, "table capacities ({\"chip\": 0, \"routes\": ..., \"replicationEntries\": ...})");
  in_.knownFields(v, p, {"chip", "routes", "boundaries", "replicationEntries"});
  if (auto const* chip = in_.member(v, "chip")) c.capacityChip = in_.chipNumber(*chip, child(p, "chip"));
  Scenario::Config::Capacity capacity;
  if (auto const* x = in_.member(v, "routes")) capacity.routes = in_.tableSize(*x, child(p, "routes"));
  if (auto const* x = in_.member(v, "boundaries")) capacity.boundaries = in_.tableSize(*x, child(p, "boundaries"));
  if (auto const* x = in_.member(v, "replicationEntries")) {
    capacity.replicationEntries = in_.tableSize(*x, child(p, "replicationEntries"));
  }
  c.capacity = capacity;
}

}  // namespace FalSim
