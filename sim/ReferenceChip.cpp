#include "sim/ReferenceChip.h"

#include <algorithm>
#include <functional>
#include <sstream>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "platform/vex/Trace.h"
#include "sync/Boundary.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace FalSim {

using Bridging::VlanIdOrNone;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;

namespace {

Vex::TraceHandle& simTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalSim");
  return handle;
}

#define SIM_TRACE(level, expr) VEX_TRACE(simTrace(), level, "FalSimReferenceChip", expr)

std::array<std::uint8_t, 16> maskedBytes(std::array<std::uint8_t, 16> bytes, unsigned len) {
  for (unsigned i = 0; i < bytes.size(); ++i) {
    unsigned const keep = len >= (i + 1) * 8 ? 8 : (len > i * 8 ? len - i * 8 : 0);
    bytes[i] &= static_cast<std::uint8_t>(0xFF00u >> keep);
  }
  return bytes;
}

// "chip 3: op: " - the prefix of every violation about one chip.
std::string on(std::uint32_t chip, char const* op) {
  std::ostringstream os;
  os << "chip " << chip << ": " << op << ": ";
  return os.str();
}

}  // namespace

// ---- values ----

bool ReferenceChip::RouteEntry::fastdropHit(VlanIdOrNone vlan) const {
  return std::find(fastdropHits.begin(), fastdropHits.end(), vlan) != fastdropHits.end();
}

ReferenceChip::Statistics& ReferenceChip::Statistics::operator+=(Statistics const& o) {
  entriesInUse += o.entriesInUse;
  peakEntries += o.peakEntries;
  allocations += o.allocations;
  failedAllocations += o.failedAllocations;
  inPlaceRewrites += o.inPlaceRewrites;
  frees += o.frees;
  doubleFrees += o.doubleFrees;
  routes += o.routes;
  peakRoutes += o.peakRoutes;
  routeAllocations += o.routeAllocations;
  failedRouteAllocations += o.failedRouteAllocations;
  routeDeletes += o.routeDeletes;
  repoints += o.repoints;
  boundaries += o.boundaries;
  hwOperations += o.hwOperations;
  packetsForwarded += o.packetsForwarded;
  packetsDropped += o.packetsDropped;
  return *this;
}

char const* dropReasonName(ReferenceChip::DropReason reason) {
  using R = ReferenceChip::DropReason;
  switch (reason) {
    case R::none: return "none";
    case R::unknownChip: return "unknownChip";
    case R::routingDisabled: return "routingDisabled";
    case R::boundary: return "boundary";
    case R::noRoute: return "noRoute";
    case R::rpfFail: return "rpfFail";
    case R::noEntry: return "noEntry";
  }
  return "?";
}

// ---- lookup index ----

ReferenceChip::LookupKey ReferenceChip::lookupKey(std::uint16_t vrfId, IpGenRouteKey const& key) {
  LookupKey k;
  k.vrfId = vrfId;
  k.af = static_cast<std::uint8_t>(key.af());
  k.sourceLen = static_cast<std::uint8_t>(key.source().len());
  k.groupLen = static_cast<std::uint8_t>(key.group().len());
  k.source = maskedBytes(key.source().address().bytes(), k.sourceLen);
  k.group = maskedBytes(key.group().address().bytes(), k.groupLen);
  return k;
}

void ReferenceChip::PrefixIndex::add(LookupKey const& k, RouteHandle h) {
  byKey_[k].push_back(h);
  ++lengths_[LengthPair{k.af, k.sourceLen, k.groupLen}];
}

void ReferenceChip::PrefixIndex::remove(LookupKey const& k, RouteHandle h) {
  auto it = byKey_.find(k);
  if (it == byKey_.end()) return;
  auto& handles = it->second;
  auto pos = std::find(handles.begin(), handles.end(), h);
  if (pos == handles.end()) return;
  handles.erase(pos);
  if (handles.empty()) byKey_.erase(it);
  auto len = lengths_.find(LengthPair{k.af, k.sourceLen, k.groupLen});
  if (len != lengths_.end() && --len->second == 0) lengths_.erase(len);
}

absl::InlinedVector<RouteHandle, 1> const* ReferenceChip::PrefixIndex::find(LookupKey const& k) const {
  auto it = byKey_.find(k);
  return it == byKey_.end() ? nullptr : &it->second;
}

void ReferenceChip::PrefixIndex::matches(std::uint16_t vrfId, IpGenAddr const& source, IpGenAddr const& group,
                                         std::vector<absl::InlinedVector<RouteHandle, 1> const*>& out,
                                         bool firstOnly) const {
  if (source.af() != group.af()) return;
  auto const af = static_cast<std::uint8_t>(group.af());
  LookupKey k;
  k.vrfId = vrfId;
  k.af = af;
  for (auto it = lengths_.lower_bound(LengthPair{af, 255, 255}); it != lengths_.end() && it->first.af == af; ++it) {
    k.sourceLen = it->first.sourceLen;
    k.groupLen = it->first.groupLen;
    k.source = maskedBytes(source.bytes(), k.sourceLen);
    k.group = maskedBytes(group.bytes(), k.groupLen);
    if (auto const* handles = find(k)) {
      out.push_back(handles);
      if (firstOnly) return;
    }
  }
}

// ---- construction and configuration ----

ReferenceChip::ReferenceChip(Vex::Name name, std::uint32_t chips, Capacity capacity) : MrouteSmHelper(std::move(name)) {
  chips_.resize(chips);
  for (auto& c : chips_) {
    c.capacity = capacity;
    c.noPort[0].index = kNowhereIndex;
    c.noPort[1].index = kCpuOnlyIndex;
    c.noPort[1].portVlanSet.toCpuIs(true);
  }
}

ReferenceChip::ReplicationEntry* ReferenceChip::entryAt(Chip& c, std::uint32_t index) {
  return const_cast<ReplicationEntry*>(entryAt(static_cast<Chip const&>(c), index));
}

ReferenceChip::ReplicationEntry const* ReferenceChip::entryAt(Chip const& c, std::uint32_t index) {
  for (auto const& e : c.noPort) {
    if (e.index == index) return &e;
  }
  auto it = c.entries.find(index);
  return it == c.entries.end() ? nullptr : &it->second;
}

ReferenceChip::~ReferenceChip() = default;

ReferenceChip::Chip const& ReferenceChip::chipAt(std::uint32_t chip) const {
  VEX_ASSERT(chip < chips_.size());
  return chips_[chip];
}

ReferenceChip::Chip& ReferenceChip::chipAt(std::uint32_t chip) {
  VEX_ASSERT(chip < chips_.size());
  return chips_[chip];
}

ReferenceChip::Chip* ReferenceChip::chipFor(std::uint32_t switchId, char const* op) {
  if (switchId < chips_.size()) return &chips_[switchId];
  violation(on(switchId, op) + "no such chip (" + std::to_string(chips_.size()) + " chips)");
  return nullptr;
}

ReferenceChip::Capacity ReferenceChip::capacity(std::uint32_t chip) const { return chipAt(chip).capacity; }
void ReferenceChip::capacityIs(std::uint32_t chip, Capacity capacity) { chipAt(chip).capacity = capacity; }

void ReferenceChip::failNextAllocationsIs(std::uint32_t chip, Table table, std::uint32_t n) {
  chipAt(chip).failNext[tableSlot(table)] = n;
}
std::uint32_t ReferenceChip::failNextAllocations(std::uint32_t chip, Table table) const {
  return chipAt(chip).failNext[tableSlot(table)];
}
void ReferenceChip::fullForcedIs(std::uint32_t chip, Table table, bool forced) {
  chipAt(chip).fullForced[tableSlot(table)] = forced;
}
bool ReferenceChip::fullForced(std::uint32_t chip, Table table) const { return chipAt(chip).fullForced[tableSlot(table)]; }

bool ReferenceChip::switchInitialized(std::uint32_t chip) const { return chipAt(chip).initialized; }

bool ReferenceChip::full(Chip const& c, Table t) const {
  if (c.fullForced[tableSlot(t)]) return true;
  switch (t) {
    case Table::route: return c.routes.size() >= c.capacity.routes;
    case Table::boundary: return c.boundaries.size() >= c.capacity.boundaries;
    case Table::replication:
      return c.entries.size() >= c.capacity.replicationEntries ||
             (c.freeIndexes.empty() && c.nextIndex >= kFirstReservedIndex);
  }
  return true;
}

bool ReferenceChip::injectedFailure(Chip& c, Table t) {
  auto& n = c.failNext[tableSlot(t)];
  if (n == 0) return false;
  --n;
  return true;
}

void ReferenceChip::charge(Chip* c) {
  if (c) ++c->stats.hwOperations;
  if (operationCost_ > 0) {
    if (auto* am = Vex::ActivityManager::current()) am->advanceBy(operationCost_);
  }
}

void ReferenceChip::violation(std::string text) {
  SIM_TRACE(1, "violation: " << text);
  violations_.push_back(std::move(text));
}

// ---- queries ----

ReferenceChip::ReplicationEntry const* ReferenceChip::replicationEntry(std::uint32_t chip, std::uint32_t index) const {
  return entryAt(chipAt(chip), index);
}

absl::btree_map<std::uint32_t, ReferenceChip::ReplicationEntry> const& ReferenceChip::replicationEntries(
    std::uint32_t chip) const {
  return chipAt(chip).entries;
}

ReferenceChip::RouteEntry const* ReferenceChip::route(std::uint32_t chip, RouteHandle handle) const {
  auto const& routes = chipAt(chip).routes;
  auto it = routes.find(handle);
  return it == routes.end() ? nullptr : &it->second;
}

absl::btree_map<RouteHandle, ReferenceChip::RouteEntry> const& ReferenceChip::routes(std::uint32_t chip) const {
  return chipAt(chip).routes;
}

ReferenceChip::RouteEntry const* ReferenceChip::route(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                      VlanIdOrNone acceptingVlan) const {
  Chip const& c = chipAt(chip);
  auto const* handles = c.routeIndex.find(lookupKey(vrfId, key));
  if (!handles) return nullptr;
  for (RouteHandle h : *handles) {
    RouteEntry const& r = c.routes.at(h);
    if (r.acceptingVlan == acceptingVlan) return &r;
  }
  return nullptr;
}

ReferenceChip::BoundaryEntry const* ReferenceChip::boundary(std::uint32_t chip, RouteHandle handle) const {
  auto const& boundaries = chipAt(chip).boundaries;
  auto it = boundaries.find(handle);
  return it == boundaries.end() ? nullptr : &it->second;
}

absl::btree_map<RouteHandle, ReferenceChip::BoundaryEntry> const& ReferenceChip::boundaries(std::uint32_t chip) const {
  return chipAt(chip).boundaries;
}

std::int64_t ReferenceChip::counterPending(IpGenRouteKey const& key) const {
  auto it = counters_.find(key);
  return it == counters_.end() ? 0 : it->second.pending;
}

ReferenceChip::Statistics ReferenceChip::statistics(std::uint32_t chip) const {
  Chip const& c = chipAt(chip);
  Statistics s = c.stats;
  s.entriesInUse = c.entries.size();
  s.routes = c.routes.size();
  s.boundaries = c.boundaries.size();
  return s;
}

ReferenceChip::Statistics ReferenceChip::statisticsTotal() const {
  Statistics total;
  for (std::uint32_t i = 0; i < chips(); ++i) total += statistics(i);
  return total;
}

std::vector<std::string> ReferenceChip::invariantViolations(std::uint32_t chip,
                                                            absl::btree_set<std::uint32_t> const& liveIndexes) const {
  std::vector<std::string> out;
  if (chip >= chips_.size()) {
    out.push_back(on(chip, "invariants") + "no such chip");
    return out;
  }
  Chip const& c = chips_[chip];
  std::string const where = on(chip, "invariants");
  for (auto const& [handle, r] : c.routes) {
    if (r.oifSetIndex != 0 && !entryAt(c, r.oifSetIndex)) {
      out.push_back(where + "route " + r.key.pretty() + " handle " + std::to_string(handle.value()) +
                    " points at oifSetIndex " + std::to_string(r.oifSetIndex) + ", which is not programmed");
    }
  }
  for (auto const& [index, entry] : c.entries) {
    if (!liveIndexes.contains(index)) {
      out.push_back(where + "oifSetIndex " + std::to_string(index) +
                    " is programmed but the library holds no set for it (leaked)");
    }
  }
  for (std::uint32_t index : liveIndexes) {
    if (!entryAt(c, index)) {
      out.push_back(where + "the library holds oifSetIndex " + std::to_string(index) + ", which is not programmed");
    }
  }
  for (std::uint32_t index : c.doubleFreed) {
    out.push_back(where + "oifSetIndex " + std::to_string(index) + " was freed twice");
  }
  return out;
}

// ---- agent and chip start-up ----

void ReferenceChip::mrouteInit(bool initializing) { mrouteInitialized_ = initializing; }

void ReferenceChip::handleMulticastRouting(bool enabled) { multicastRoutingEnabled_ = enabled; }

void ReferenceChip::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) { counterMode_ = mode; }

void ReferenceChip::verifyMulticastRouting(bool enabled) {
  if (enabled == multicastRoutingEnabled_) return;
  violation(std::string("verifyMulticastRouting: the library has multicast routing ") + (enabled ? "enabled" : "disabled") +
            ", the chips have it " + (multicastRoutingEnabled_ ? "enabled" : "disabled"));
}

void ReferenceChip::mrouteSwitchInit(std::uint32_t switchId, bool initializing) {
  if (Chip* c = chipFor(switchId, "mrouteSwitchInit")) c->initialized = initializing;
}

// ---- replication table ----

std::uint32_t ReferenceChip::programEntry(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr const& oifSet,
                                          char const* op) {
  Chip* c = chipFor(switchId, op);
  if (!c) return kInvalidIndex;
  if (!oifSet) {
    violation(on(switchId, op) + "null OIF set");
    return kInvalidIndex;
  }
  charge(c);
  if (oifSetIndex != 0 && oifSetIndex != kFreshIndex) {
    auto it = c->entries.find(oifSetIndex);
    if (it == c->entries.end()) {
      violation(on(switchId, op) + "rewrite of oifSetIndex " + std::to_string(oifSetIndex) + ", which is not programmed");
      return kInvalidIndex;
    }
    it->second.portVlanSet = oifSet->portVlanSet();
    ++it->second.rewrites;
    ++c->stats.inPlaceRewrites;
    SIM_TRACE(6, "chip " << switchId << " rewrote oifSetIndex " << oifSetIndex << " in place: " << oifSet->pretty());
    return oifSetIndex;
  }
  auto const& pvs = oifSet->portVlanSet();
  if (pvs.reachesNoPort()) {
    std::uint32_t const index = pvs.toCpu() ? kCpuOnlyIndex : kNowhereIndex;
    SIM_TRACE(6, "chip " << switchId << " gave oifSetIndex " << index << " (no port): " << oifSet->pretty());
    return index;
  }
  if (injectedFailure(*c, Table::replication) || full(*c, Table::replication)) {
    ++c->stats.failedAllocations;
    return kInvalidIndex;
  }
  std::uint32_t index;
  if (c->freeIndexes.empty()) {
    index = c->nextIndex++;
  } else {
    index = *c->freeIndexes.begin();
    c->freeIndexes.erase(c->freeIndexes.begin());
  }
  ReplicationEntry& entry = c->entries[index];
  entry.index = index;
  entry.portVlanSet = oifSet->portVlanSet();
  ++c->stats.allocations;
  c->stats.peakEntries = std::max<std::uint64_t>(c->stats.peakEntries, c->entries.size());
  SIM_TRACE(6, "chip " << switchId << " allocated oifSetIndex " << index << ": " << oifSet->pretty());
  return index;
}

std::uint32_t ReferenceChip::doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return programEntry(switchId, oifSetIndex, oifSet, "doAllocateMtableOifSet");
}

std::uint32_t ReferenceChip::doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return programEntry(switchId, oifSetIndex, oifSet, "doReallocateMtableOifSet");
}

void ReferenceChip::handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) {
  char const* const op = "handleFreeMtableOifSet";
  Chip* c = chipFor(switchId, op);
  if (!c) return;
  if (!oifSet) {
    violation(on(switchId, op) + "null OIF set");
    return;
  }
  charge(c);
  std::uint32_t const index = oifSet->oifSetIndex();
  if (index == kNowhereIndex || index == kCpuOnlyIndex) return;  // shared, kept for good
  auto it = c->entries.find(index);
  if (it == c->entries.end()) {
    // Every index below nextIndex has been handed out once; one that is not
    // programmed now has been freed already.
    if (index != 0 && index < c->nextIndex) {
      ++c->stats.doubleFrees;
      c->doubleFreed.push_back(index);
      violation(on(switchId, op) + "double free of oifSetIndex " + std::to_string(index));
    } else {
      violation(on(switchId, op) + "free of oifSetIndex " + std::to_string(index) + ", which was never allocated");
    }
    return;
  }
  if (it->second.routes != 0) {
    violation(on(switchId, op) + "oifSetIndex " + std::to_string(index) + " freed while " +
              std::to_string(it->second.routes) + " route(s) still point at it");
  }
  c->entries.erase(it);
  c->freeIndexes.insert(index);
  ++c->stats.frees;
  SIM_TRACE(6, "chip " << switchId << " freed oifSetIndex " << index);
}

bool ReferenceChip::mtableFull(std::uint32_t switchId) {
  Chip* c = chipFor(switchId, "mtableFull");
  return c && full(*c, Table::replication);
}

bool ReferenceChip::verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) {
  // The hook carries no chip: usable when a chip holding that index holds
  // these outputs in it.
  for (Chip const& c : chips_) {
    auto it = c.entries.find(oifSetIndex);
    if (it != c.entries.end() && it->second.portVlanSet == portVlanSet) return true;
  }
  return false;
}

// ---- route and boundary tables ----

RouteHandle ReferenceChip::allocateHandle(Chip& c) {
  for (;;) {
    RouteHandle const h(c.nextHandle++);
    if (h.value() == 0 || h.isNull()) continue;
    if (!c.routes.contains(h) && !c.boundaries.contains(h)) return h;
  }
}

void ReferenceChip::entryRefIs(Chip& c, std::uint32_t switchId, std::uint32_t index, int delta, char const* op,
                               RouteEntry const& r) {
  if (index == 0) return;
  ReplicationEntry* const entry = entryAt(c, index);
  if (!entry) {
    if (delta > 0) {
      violation(on(switchId, op) + "route " + r.key.pretty() + " handle " + std::to_string(r.handle.value()) +
                " set to oifSetIndex " + std::to_string(index) + ", which is not programmed");
    }
    return;
  }
  if (delta < 0 && entry->routes == 0) return;
  entry->routes += delta;
}

RouteHandle ReferenceChip::allocateRoute(std::uint32_t switchId, char const* op, RouteEntry entry, bool bridge) {
  Chip* c = chipFor(switchId, op);
  if (!c) return RouteHandle::invalid();
  charge(c);
  if (bridge) {
    if (injectedFailure(*c, Table::boundary) || full(*c, Table::boundary)) return RouteHandle::invalid();
    RouteHandle const h = allocateHandle(*c);
    c->boundaries.emplace(h, BoundaryEntry{h, entry.vrfId, entry.key, entry.acceptingVlan});
    c->boundaryIndex.add(lookupKey(entry.vrfId, entry.key), h);
    return h;
  }
  if (injectedFailure(*c, Table::route) || full(*c, Table::route)) {
    ++c->stats.failedRouteAllocations;
    return RouteHandle::invalid();
  }
  if (entry.oifSetIndex == kInvalidIndex) entry.oifSetIndex = 0;
  LookupKey const k = lookupKey(entry.vrfId, entry.key);
  if (auto const* same = c->routeIndex.find(k)) {
    for (RouteHandle other : *same) {
      if (c->routes.at(other).acceptingVlan == entry.acceptingVlan) {
        violation(on(switchId, op) + "route " + entry.key.pretty() + " vlan " + std::to_string(entry.acceptingVlan.value()) +
                  " in VRF " + std::to_string(entry.vrfId) + " is already programmed under handle " +
                  std::to_string(other.value()));
      }
    }
  }
  entry.handle = allocateHandle(*c);
  entryRefIs(*c, switchId, entry.oifSetIndex, +1, op, entry);
  RouteHandle const h = entry.handle;
  c->routes.emplace(h, std::move(entry));
  c->routeIndex.add(k, h);
  ++c->stats.routeAllocations;
  c->stats.peakRoutes = std::max<std::uint64_t>(c->stats.peakRoutes, c->routes.size());
  return h;
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
  Chip* c = chipFor(switchId, op);
  if (!c) return;
  charge(c);
  auto it = c->routes.find(handle);
  if (it == c->routes.end()) {
    violation(on(switchId, op) + "unknown route handle " + std::to_string(handle.value()));
    return;
  }
  RouteEntry& r = it->second;
  if (r.vrfId != vrfId) {
    violation(on(switchId, op) + "route " + r.key.pretty() + " handle " + std::to_string(handle.value()) +
              " is in VRF " + std::to_string(r.vrfId) + ", not " + std::to_string(vrfId));
  }
  if (oifSetIndex == kInvalidIndex) oifSetIndex = 0;
  entryRefIs(*c, switchId, r.oifSetIndex, -1, op, r);
  entryRefIs(*c, switchId, oifSetIndex, +1, op, r);
  r.oifSetIndex = oifSetIndex;
  ++c->stats.repoints;
}

void ReferenceChip::doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                   Vex::Ptr<Fal::Route const> const&) {
  char const* const op = "doDeleteMroute";
  Chip* c = chipFor(switchId, op);
  if (!c) return;
  charge(c);
  auto it = c->routes.find(handle);
  if (it == c->routes.end()) {
    violation(on(switchId, op) + "unknown route handle " + std::to_string(handle.value()));
    return;
  }
  RouteEntry const& r = it->second;
  if (r.vrfId != vrfId) {
    violation(on(switchId, op) + "route " + r.key.pretty() + " handle " + std::to_string(handle.value()) +
              " is in VRF " + std::to_string(r.vrfId) + ", not " + std::to_string(vrfId));
  }
  entryRefIs(*c, switchId, r.oifSetIndex, -1, op, r);
  c->routeIndex.remove(lookupKey(r.vrfId, r.key), handle);
  c->routes.erase(it);
  ++c->stats.routeDeletes;
}

void ReferenceChip::doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                           Vex::Ptr<Fal::Boundary const> const&) {
  char const* const op = "doDeleteMrouteBoundary";
  Chip* c = chipFor(switchId, op);
  if (!c) return;
  charge(c);
  auto it = c->boundaries.find(handle);
  if (it == c->boundaries.end()) {
    violation(on(switchId, op) + "unknown boundary handle " + std::to_string(handle.value()));
    return;
  }
  BoundaryEntry const& b = it->second;
  if (b.vrfId != vrfId) {
    violation(on(switchId, op) + "boundary " + b.key.pretty() + " handle " + std::to_string(handle.value()) +
              " is in VRF " + std::to_string(b.vrfId) + ", not " + std::to_string(vrfId));
  }
  c->boundaryIndex.remove(lookupKey(b.vrfId, b.key), handle);
  c->boundaries.erase(it);
}

void ReferenceChip::doCommitMrouteBatch() { ++commits_; }

bool ReferenceChip::mrouteFull(std::uint32_t switchId) {
  Chip* c = chipFor(switchId, "mrouteFull");
  return c && full(*c, Table::route);
}

bool ReferenceChip::mrouteBoundaryFull(std::uint32_t switchId) {
  Chip* c = chipFor(switchId, "mrouteBoundaryFull");
  return c && full(*c, Table::boundary);
}

// ---- hit bits ----

bool ReferenceChip::mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                                 bool fastdrop) {
  Chip* c = chipFor(switchId, "mrouteHitBit");
  if (!c) return false;
  charge(c);
  auto const* handles = c->routeIndex.find(lookupKey(vrfId, key));
  if (!handles) return false;
  for (RouteHandle h : *handles) {
    RouteEntry const& r = c->routes.at(h);
    if (fastdrop) {
      if (r.fastdropHit(vlan)) return true;
    } else if (r.hit && (r.noRpf || r.acceptingVlan == vlan)) {
      return true;
    }
  }
  return false;
}

bool ReferenceChip::mrouteHitBitCacheRefresh(std::uint32_t switchId) {
  // The bits are read live; a refresh only costs its operation.
  Chip* c = chipFor(switchId, "mrouteHitBitCacheRefresh");
  if (!c) return false;
  charge(c);
  ++hitBitCacheRefreshes_;
  return true;
}

void ReferenceChip::mrouteHitBitCacheClear(std::uint32_t switchId) {
  Chip* c = chipFor(switchId, "mrouteHitBitCacheClear");
  if (!c) return;
  charge(c);
  for (auto& [h, r] : c->routes) {
    r.hit = false;
    r.fastdropHits.clear();
  }
}

// ---- counters ----
// Counters are keyed by route key alone, as the hooks name them; they count
// the traffic of every chip.

bool ReferenceChip::doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) {
  charge(nullptr);
  counters_[key].vrfId = vrfId;
  return true;
}

void ReferenceChip::doDeleteMrouteCounter(IpGenRouteKey const& key) {
  charge(nullptr);
  counters_.erase(key);
}

bool ReferenceChip::doClearMrouteCounter(IpGenRouteKey const& key) {
  charge(nullptr);
  auto it = counters_.find(key);
  if (it == counters_.end()) return false;
  it->second.pending = 0;
  return true;
}

std::int64_t ReferenceChip::doReadMrouteCounter(IpGenRouteKey const& key) {
  charge(nullptr);
  auto it = counters_.find(key);
  if (it == counters_.end()) return 0;
  return std::exchange(it->second.pending, 0);
}

void ReferenceChip::ageOutHwMcastCounter(IpGenRouteKey const& key) {
  charge(nullptr);
  counters_.erase(key);
}

void ReferenceChip::countTraffic(RouteEntry const& r, std::uint32_t bytes) {
  if (counters_.empty()) return;
  std::int64_t const amount = counterMode_ == Routing::Multicast::Fib::CounterMode::bytes ? bytes : 1;
  if (auto it = counters_.find(r.key); it != counters_.end() && it->second.vrfId == r.vrfId) it->second.pending += amount;
  // The family's wildcard counter counts every routed packet of its VRF.
  IpGenRouteKey const wildcard = IpGenRouteKey::wildcardOf(r.key.af());
  if (r.key == wildcard) return;
  if (auto it = counters_.find(wildcard); it != counters_.end() && it->second.vrfId == r.vrfId) it->second.pending += amount;
}

// ---- traffic ----

ReferenceChip::ForwardResult ReferenceChip::forwardWithReason(std::uint32_t chip, std::uint16_t vrfId,
                                                              IpGenAddr const& source, IpGenAddr const& group,
                                                              VlanIdOrNone vlanIn, std::uint32_t bytes) {
  ForwardResult result;
  if (chip >= chips_.size()) {
    result.dropReason = DropReason::unknownChip;
    return result;
  }
  Chip& c = chips_[chip];
  auto drop = [&](DropReason why) {
    result.dropReason = why;
    ++c.stats.packetsDropped;
    SIM_TRACE(7, "chip " << chip << " dropped (" << source << ", " << group << ") on vlan " << vlanIn << ": "
                         << dropReasonName(why));
    return result;
  };
  if (!multicastRoutingEnabled_) return drop(DropReason::routingDisabled);

  std::vector<absl::InlinedVector<RouteHandle, 1> const*> found;
  if (!c.boundaries.empty()) {
    c.boundaryIndex.matches(vrfId, source, group, found, false);
    for (auto const* handles : found) {
      for (RouteHandle h : *handles) {
        if (c.boundaries.at(h).vlan == vlanIn) return drop(DropReason::boundary);
      }
    }
    found.clear();
  }

  c.routeIndex.matches(vrfId, source, group, found, true);
  if (found.empty()) return drop(DropReason::noRoute);
  auto const& handles = *found.front();
  RouteEntry* chosen = nullptr;
  for (RouteHandle h : handles) {
    RouteEntry& r = c.routes.at(h);
    if (r.noRpf || r.acceptingVlan == vlanIn) {
      chosen = &r;
      break;
    }
  }
  if (!chosen) {
    result.route = handles.front();
    for (RouteHandle h : handles) {
      RouteEntry& r = c.routes.at(h);
      if (r.fastdrop && !r.fastdropHit(vlanIn)) r.fastdropHits.push_back(vlanIn);
    }
    return drop(DropReason::rpfFail);
  }

  result.route = chosen->handle;
  result.oifSetIndex = chosen->oifSetIndex;
  chosen->hit = true;
  countTraffic(*chosen, bytes);
  ReplicationEntry const* const entry = chosen->oifSetIndex == 0 ? nullptr : entryAt(c, chosen->oifSetIndex);
  if (!entry) return drop(DropReason::noEntry);
  auto const& outputs = entry->portVlanSet.portVlan();
  result.copies.assign(outputs.begin(), outputs.end());
  result.toCpu = entry->portVlanSet.toCpu();
  ++c.stats.packetsForwarded;
  return result;
}

std::vector<MrouteLib::PortVlan> ReferenceChip::forward(std::uint32_t chip, std::uint16_t vrfId, IpGenAddr const& source,
                                                        IpGenAddr const& group, VlanIdOrNone vlanIn) {
  return forwardWithReason(chip, vrfId, source, group, vlanIn).copies;
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
  Chip* c = chipFor(switchId, op);
  if (!c) return;
  if (!route) {
    violation(on(switchId, op) + "null route");
    return;
  }
  FieldCheck check([this](std::string v) { violation(std::move(v)); },
                   [&] {
                     return on(switchId, op) + "route " + route->key().pretty() + " handle " +
                            std::to_string(route->routeHandle().value()) + ": ";
                   });
  auto it = c->routes.find(route->routeHandle());
  if (it == c->routes.end()) {
    check.fail("not in the route table");
    return;
  }
  RouteEntry const& r = it->second;
  check.field("key", r.key, route->key());
  check.field("accepting VLAN", r.acceptingVlan, route->acceptingVlanId());
  check.field("vrfId", r.vrfId, route->vrfId());
  check.field("vrfId (argument)", r.vrfId, vrfId);
  check.field("fastdrop", r.fastdrop, route->fastdrop());
  check.field("rpaId", r.rpaId, route->rpaId());
  // A route is programmed with its set's index before the library records
  // the set on it; until then there is nothing to compare.
  if (auto const& set = route->mtableOifSet()) {
    check.field("oifSetIndex", r.oifSetIndex, set->oifSetIndex());
    if (set->deleted()) check.fail("the library's OIF set " + std::to_string(set->oifSetIndex()) + " is freed");
  }
  if (r.oifSetIndex != 0 && !entryAt(*c, r.oifSetIndex)) {
    check.fail("oifSetIndex " + std::to_string(r.oifSetIndex) + " is not programmed");
  }
}

void ReferenceChip::verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                                         Vex::Ptr<Fal::Boundary const> const& boundary) {
  char const* const op = "verifyMrouteBoundary";
  Chip* c = chipFor(switchId, op);
  if (!c) return;
  if (!boundary) {
    violation(on(switchId, op) + "null boundary");
    return;
  }
  FieldCheck check([this](std::string v) { violation(std::move(v)); },
                   [&] {
                     return on(switchId, op) + "boundary " + boundary->key().pretty() + " handle " +
                            std::to_string(boundary->routeHandle().value()) + ": ";
                   });
  auto it = c->boundaries.find(boundary->routeHandle());
  if (it == c->boundaries.end()) {
    check.fail("not in the boundary table");
    return;
  }
  BoundaryEntry const& b = it->second;
  check.field("key", b.key, boundary->key());
  check.field("VLAN", b.vlan.value(), boundary->acceptingVlanId().value());
  check.field("vrfId", b.vrfId, boundary->vrfId());
  check.field("vrfId (argument)", b.vrfId, vrfId);
}

}  // namespace FalSim
