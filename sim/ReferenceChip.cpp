#include "sim/ReferenceChip.h"

#include <functional>
#include <sstream>

#include "sim/SimTrace.h"
#include "sync/Boundary.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace FalSim {

using Bridging::VlanIdOrNone;
using MrouteLib::RouteHandle;

ReferenceChip::ReferenceChip(Vex::Name name, std::uint32_t chips, Capacity capacity)
    : MrouteSmHelper(std::move(name)), ReferenceChipTables(chips, capacity) {}

ReferenceChip::~ReferenceChip() = default;

// ---- agent and chip start-up ----

void ReferenceChip::mrouteInit(bool initializing) { mrouteInitialized_ = initializing; }

void ReferenceChip::handleMulticastRouting(bool enabled) { multicastRoutingEnabledIs(enabled); }

void ReferenceChip::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) { counterModeIs(mode); }

void ReferenceChip::verifyMulticastRouting(bool enabled) {
  if (enabled == multicastRoutingEnabled()) return;
  violation(std::string("verifyMulticastRouting: the library has multicast routing ") + (enabled ? "enabled" : "disabled") +
            ", the chips have it " + (multicastRoutingEnabled() ? "enabled" : "disabled"));
}

void ReferenceChip::mrouteSwitchInit(std::uint32_t switchId, bool initializing) {
  if (knownChip(switchId, "mrouteSwitchInit")) switchInitializedIs(switchId, initializing);
}

// ---- replication table ----

std::uint32_t ReferenceChip::programEntry(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr const& oifSet,
                                          char const* op) {
  if (!knownChip(switchId, op)) return kInvalidIndex;
  if (!oifSet) {
    violation(violationPrefix(switchId, op) + "null OIF set");
    return kInvalidIndex;
  }
  charge(switchId);
  auto const& pvs = oifSet->portVlanSet();
  if (oifSetIndex != 0 && oifSetIndex != kFreshIndex) {
    return entryWrite(switchId, oifSetIndex, pvs, op) ? oifSetIndex : kInvalidIndex;
  }
  if (pvs.reachesNoPort()) {
    std::uint32_t const index = noPortIndex(pvs);
    SIM_TRACE(6, "chip " << switchId << " gave oifSetIndex " << index << " (no port): " << oifSet->pretty());
    return index;
  }
  return entryAllocate(switchId, pvs);
}

std::uint32_t ReferenceChip::doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return programEntry(switchId, oifSetIndex, oifSet, "doAllocateMtableOifSet");
}

std::uint32_t ReferenceChip::doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return programEntry(switchId, oifSetIndex, oifSet, "doReallocateMtableOifSet");
}

void ReferenceChip::handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) {
  char const* const op = "handleFreeMtableOifSet";
  if (!knownChip(switchId, op)) return;
  if (!oifSet) {
    violation(violationPrefix(switchId, op) + "null OIF set");
    return;
  }
  charge(switchId);
  entryFree(switchId, oifSet->oifSetIndex(), op);
}

bool ReferenceChip::mtableFull(std::uint32_t switchId) {
  return knownChip(switchId, "mtableFull") && full(switchId, Table::replication);
}

bool ReferenceChip::verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) {
  // The hook carries no chip: usable when a chip holding that index holds
  // these outputs in it.
  for (std::uint32_t c = 0; c < chips(); ++c) {
    auto const& entries = replicationEntries(c);
    auto it = entries.find(oifSetIndex);
    if (it != entries.end() && it->second.portVlanSet == portVlanSet) return true;
  }
  return false;
}

// ---- route and boundary tables ----

void ReferenceChip::vrfIdCheck(std::uint32_t switchId, char const* op, char const* what, IpGenRouteKey const& key,
                               RouteHandle handle, std::uint16_t programmed, std::uint16_t named) {
  if (programmed == named) return;
  violation(violationPrefix(switchId, op) + what + " " + key.pretty() + " handle " + std::to_string(handle.value()) +
            " is in VRF " + std::to_string(programmed) + ", not " + std::to_string(named));
}

RouteHandle ReferenceChip::allocateRoute(std::uint32_t switchId, char const* op, RouteEntry entry, bool bridge) {
  if (!knownChip(switchId, op)) return RouteHandle::invalid();
  charge(switchId);
  return routeAllocate(switchId, std::move(entry), bridge, op);
}

RouteHandle ReferenceChip::doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                            VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                                            bool fastdrop, std::uint16_t rpaId) {
  RouteEntry e;
  e.vrfId = vrfId;
  e.key = key;
  e.acceptingVlan = acceptingVlanId;
  e.oifSetIndex = oifSetIndex;
  e.fastdrop = fastdrop;
  e.rpaId = rpaId;
  return allocateRoute(switchId, "doAllocateMroute", std::move(e), bridge);
}

RouteHandle ReferenceChip::doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                 bool bridge, std::uint32_t oifSetIndex, bool fastdrop, std::uint16_t rpaId) {
  RouteEntry e;
  e.vrfId = vrfId;
  e.key = key;
  e.noRpf = true;
  e.oifSetIndex = oifSetIndex;
  e.fastdrop = fastdrop;
  e.rpaId = rpaId;
  return allocateRoute(switchId, "doAllocateMrouteNoRpf", std::move(e), bridge);
}

void ReferenceChip::doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                      Vex::Ptr<Fal::Route const> const&, std::uint32_t oifSetIndex) {
  char const* const op = "doSetMtableOifSet";
  if (!knownChip(switchId, op)) return;
  charge(switchId);
  RouteEntry const* r = routeFor(switchId, handle, op);
  if (!r) return;
  vrfIdCheck(switchId, op, "route", r->key, handle, r->vrfId, vrfId);
  routeEntryIs(switchId, handle, oifSetIndex, op);
}

void ReferenceChip::doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                   Vex::Ptr<Fal::Route const> const&) {
  char const* const op = "doDeleteMroute";
  if (!knownChip(switchId, op)) return;
  charge(switchId);
  RouteEntry const* r = routeFor(switchId, handle, op);
  if (!r) return;
  vrfIdCheck(switchId, op, "route", r->key, handle, r->vrfId, vrfId);
  routeDel(switchId, handle);
}

void ReferenceChip::doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                           Vex::Ptr<Fal::Boundary const> const&) {
  char const* const op = "doDeleteMrouteBoundary";
  if (!knownChip(switchId, op)) return;
  charge(switchId);
  BoundaryEntry const* b = boundaryFor(switchId, handle, op);
  if (!b) return;
  vrfIdCheck(switchId, op, "boundary", b->key, handle, b->vrfId, vrfId);
  boundaryDel(switchId, handle);
}

void ReferenceChip::doCommitMrouteBatch() { ++commits_; }

bool ReferenceChip::mrouteFull(std::uint32_t switchId) {
  return knownChip(switchId, "mrouteFull") && full(switchId, Table::route);
}

bool ReferenceChip::mrouteBoundaryFull(std::uint32_t switchId) {
  return knownChip(switchId, "mrouteBoundaryFull") && full(switchId, Table::boundary);
}

// ---- hit bits ----

bool ReferenceChip::mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                                 bool fastdrop) {
  if (!knownChip(switchId, "mrouteHitBit")) return false;
  charge(switchId);
  return hitBit(switchId, vrfId, key, vlan, fastdrop);
}

bool ReferenceChip::mrouteHitBitCacheRefresh(std::uint32_t switchId) {
  // The bits are read live; a refresh only costs its operation.
  if (!knownChip(switchId, "mrouteHitBitCacheRefresh")) return false;
  charge(switchId);
  ++hitBitCacheRefreshes_;
  return true;
}

void ReferenceChip::mrouteHitBitCacheClear(std::uint32_t switchId) {
  if (!knownChip(switchId, "mrouteHitBitCacheClear")) return;
  charge(switchId);
  hitBitsClear(switchId);
}

// ---- counters ----
// Counters are keyed by route key alone, as the hooks name them; they count
// the traffic of every chip.

bool ReferenceChip::doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) {
  charge(kNoChip);
  counterIs(vrfId, key);
  return true;
}

void ReferenceChip::doDeleteMrouteCounter(IpGenRouteKey const& key) {
  charge(kNoChip);
  counterDel(key);
}

bool ReferenceChip::doClearMrouteCounter(IpGenRouteKey const& key) {
  charge(kNoChip);
  return counterClear(key);
}

std::int64_t ReferenceChip::doReadMrouteCounter(IpGenRouteKey const& key) {
  charge(kNoChip);
  return counterRead(key);
}

void ReferenceChip::ageOutHwMcastCounter(IpGenRouteKey const& key) {
  charge(kNoChip);
  counterDel(key);
}

// ---- verification against the library ----

namespace {
// Compares one entry's fields with the library's view. The description of
// the entry is only built when a field differs: verification runs over every
// route after each change, and almost always finds nothing.
class FieldCheck {
 public:
  FieldCheck(std::function<void(std::string)> report, std::function<std::string()> where)
      : report_(std::move(report)), where_(std::move(where)) {}
  template <class H, class L>
  void field(char const* name, H const& hw, L const& lib) {
    if (hw == lib) return;
    std::ostringstream os;
    os << where_() << name << " " << hw << " in hardware, " << lib << " in the library";
    report_(os.str());
  }
  void fail(std::string const& what) { report_(where_() + what); }

 private:
  std::function<void(std::string)> report_;
  std::function<std::string()> where_;
};
}  // namespace

void ReferenceChip::verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) {
  char const* const op = "verifyMroute";
  if (!knownChip(switchId, op)) return;
  if (!route) {
    violation(violationPrefix(switchId, op) + "null route");
    return;
  }
  FieldCheck check([this](std::string v) { violation(std::move(v)); },
                   [&] {
                     return violationPrefix(switchId, op) + "route " + route->key().pretty() + " handle " +
                            std::to_string(route->routeHandle().value()) + ": ";
                   });
  RouteEntry const* const r = ReferenceChipTables::route(switchId, route->routeHandle());
  if (!r) {
    check.fail("not in the route table");
    return;
  }
  check.field("key", r->key, route->key());
  check.field("accepting VLAN", r->acceptingVlan, route->acceptingVlanId());
  check.field("vrfId", r->vrfId, route->vrfId());
  check.field("vrfId (argument)", r->vrfId, vrfId);
  check.field("fastdrop", r->fastdrop, route->fastdrop());
  check.field("rpaId", r->rpaId, route->rpaId());
  // A route is programmed with its set's index before the library records
  // the set on it; until then there is nothing to compare.
  if (auto const& set = route->mtableOifSet()) {
    check.field("oifSetIndex", r->oifSetIndex, set->oifSetIndex());
    if (set->deleted()) check.fail("the library's OIF set " + std::to_string(set->oifSetIndex()) + " is freed");
  }
  if (r->oifSetIndex != 0 && !replicationEntry(switchId, r->oifSetIndex)) {
    check.fail("oifSetIndex " + std::to_string(r->oifSetIndex) + " is not programmed");
  }
}

void ReferenceChip::verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                                         Vex::Ptr<Fal::Boundary const> const& boundary) {
  char const* const op = "verifyMrouteBoundary";
  if (!knownChip(switchId, op)) return;
  if (!boundary) {
    violation(violationPrefix(switchId, op) + "null boundary");
    return;
  }
  FieldCheck check([this](std::string v) { violation(std::move(v)); },
                   [&] {
                     return violationPrefix(switchId, op) + "boundary " + boundary->key().pretty() + " handle " +
                            std::to_string(boundary->routeHandle().value()) + ": ";
                   });
  BoundaryEntry const* const b = ReferenceChipTables::boundary(switchId, boundary->routeHandle());
  if (!b) {
    check.fail("not in the boundary table");
    return;
  }
  check.field("key", b->key, boundary->key());
  check.field("VLAN", b->vlan.value(), boundary->acceptingVlanId().value());
  check.field("vrfId", b->vrfId, boundary->vrfId());
  check.field("vrfId (argument)", b->vrfId, vrfId);
}

}  // namespace FalSim
