#include "sim/ReferenceChipTables.h"

#include <algorithm>
#include <sstream>

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Assert.h"
#include "sim/SimTrace.h"

namespace FalSim {

using Bridging::VlanIdOrNone;
using MrouteLib::RouteHandle;
using Netcore::IpGenAddr;


std::string violationPrefix(std::uint32_t chip, char const* op) {
  std::ostringstream os;
  os << "chip " << chip << ": " << op << ": ";
  return os.str();
}

// ---- values ----

bool ReferenceChipTables::RouteEntry::fastdropHit(VlanIdOrNone vlan) const {
  return fastdropHits && std::find(fastdropHits->begin(), fastdropHits->end(), vlan) != fastdropHits->end();
}

ReferenceChipTables::Statistics& ReferenceChipTables::Statistics::operator+=(Statistics const& o) {
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

char const* dropReasonName(ReferenceChipTables::DropReason reason) {
  using R = ReferenceChipTables::DropReason;
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

// ---- construction and configuration ----

ReferenceChipTables::ReferenceChipTables(std::uint32_t chips, Capacity capacity) {
  for (std::uint32_t i = 0; i < chips; ++i) {
    Chip& c = chips_.emplace_back();
    c.capacity = capacity;
    c.noPort[0].index = kNowhereIndex;
    c.noPort[1].index = kCpuOnlyIndex;
    c.noPort[1].portVlanSet.toCpuIs(true);
  }
}

ReferenceChipTables::~ReferenceChipTables() = default;

ReferenceChipTables::ReplicationEntry* ReferenceChipTables::entryAt(Chip& c, std::uint32_t index) {
  return const_cast<ReplicationEntry*>(entryAt(static_cast<Chip const&>(c), index));
}

ReferenceChipTables::ReplicationEntry const* ReferenceChipTables::entryAt(Chip const& c, std::uint32_t index) {
  for (auto const& e : c.noPort) {
    if (e.index == index) return &e;
  }
  if (index < kDirectIndexes) return index < c.byIndex.size() ? c.byIndex[index] : nullptr;
  auto it = c.entries.find(index);
  return it == c.entries.end() ? nullptr : &it->second;
}

ReferenceChipTables::Chip const& ReferenceChipTables::chipAt(std::uint32_t chip) const {
  VEX_ASSERT(chip < chips_.size());
  return chips_[chip];
}

ReferenceChipTables::Chip& ReferenceChipTables::chipAt(std::uint32_t chip) {
  VEX_ASSERT(chip < chips_.size());
  return chips_[chip];
}

bool ReferenceChipTables::knownChip(std::uint32_t chip, char const* op) {
  if (chip < chips_.size()) return true;
  violation(violationPrefix(chip, op) + "no such chip (" + std::to_string(chips_.size()) + " chips)");
  return false;
}

ReferenceChipTables::Capacity ReferenceChipTables::capacity(std::uint32_t chip) const { return chipAt(chip).capacity; }
void ReferenceChipTables::capacityIs(std::uint32_t chip, Capacity capacity) { chipAt(chip).capacity = capacity; }

void ReferenceChipTables::failNextAllocationsIs(std::uint32_t chip, Table table, std::uint32_t n) {
  chipAt(chip).failNext[tableSlot(table)] = n;
}
std::uint32_t ReferenceChipTables::failNextAllocations(std::uint32_t chip, Table table) const {
  return chipAt(chip).failNext[tableSlot(table)];
}
void ReferenceChipTables::fullForcedIs(std::uint32_t chip, Table table, bool forced) {
  chipAt(chip).fullForced[tableSlot(table)] = forced;
}
bool ReferenceChipTables::fullForced(std::uint32_t chip, Table table) const {
  return chipAt(chip).fullForced[tableSlot(table)];
}

bool ReferenceChipTables::switchInitialized(std::uint32_t chip) const { return chipAt(chip).initialized; }
void ReferenceChipTables::switchInitializedIs(std::uint32_t chip, bool initialized) {
  chipAt(chip).initialized = initialized;
}

bool ReferenceChipTables::full(std::uint32_t chip, Table table) const { return full(chipAt(chip), table); }

bool ReferenceChipTables::full(Chip const& c, Table t) {
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

bool ReferenceChipTables::injectedFailure(Chip& c, Table t) {
  auto& n = c.failNext[tableSlot(t)];
  if (n == 0) return false;
  --n;
  return true;
}

void ReferenceChipTables::charge(std::uint32_t chip) {
  if (chip < chips_.size()) ++chips_[chip].stats.hwOperations;
  if (operationCost_ > 0) {
    if (auto* am = Vex::ActivityManager::current()) am->advanceBy(operationCost_);
  }
}

void ReferenceChipTables::violation(std::string text) {
  SIM_TRACE(1, "violation: " << text);
  violations_.push_back(std::move(text));
}

// ---- queries ----

ReferenceChipTables::ReplicationEntry const* ReferenceChipTables::replicationEntry(std::uint32_t chip,
                                                                                 std::uint32_t index) const {
  return entryAt(chipAt(chip), index);
}

std::map<std::uint32_t, ReferenceChipTables::ReplicationEntry> const& ReferenceChipTables::replicationEntries(
    std::uint32_t chip) const {
  return chipAt(chip).entries;
}

ReferenceChipTables::RouteEntry const* ReferenceChipTables::route(std::uint32_t chip, RouteHandle handle) const {
  return chipAt(chip).routes.find(handle);
}

HandleTable<ReferenceChipTables::RouteEntry> const& ReferenceChipTables::routes(std::uint32_t chip) const {
  return chipAt(chip).routes;
}

ReferenceChipTables::RouteEntry const* ReferenceChipTables::route(std::uint32_t chip, std::uint16_t vrfId,
                                                                  IpGenRouteKey const& key,
                                                                  VlanIdOrNone acceptingVlan) const {
  Chip const& c = chipAt(chip);
  auto const handles = c.routeIndex.find(vrfId, key);
  if (!handles) return nullptr;
  for (RouteHandle h : *handles) {
    RouteEntry const& r = *c.routes.find(h);
    if (r.acceptingVlan == acceptingVlan) return &r;
  }
  return nullptr;
}

ReferenceChipTables::BoundaryEntry const* ReferenceChipTables::boundary(std::uint32_t chip, RouteHandle handle) const {
  return chipAt(chip).boundaries.find(handle);
}

HandleTable<ReferenceChipTables::BoundaryEntry> const& ReferenceChipTables::boundaries(std::uint32_t chip) const {
  return chipAt(chip).boundaries;
}

ReferenceChipTables::Statistics ReferenceChipTables::statistics(std::uint32_t chip) const {
  Chip const& c = chipAt(chip);
  Statistics s = c.stats;
  s.entriesInUse = c.entries.size();
  s.routes = c.routes.size();
  s.boundaries = c.boundaries.size();
  return s;
}

ReferenceChipTables::Statistics ReferenceChipTables::statisticsTotal() const {
  Statistics total;
  for (std::uint32_t i = 0; i < chips(); ++i) total += statistics(i);
  return total;
}

std::vector<std::string> ReferenceChipTables::invariantViolations(std::uint32_t chip,
                                                                  absl::btree_set<std::uint32_t> const& liveIndexes,
                                                                  char const* noun) const {
  std::vector<std::string> out;
  std::string const where = violationPrefix(chip, "invariants");
  if (chip >= chips_.size()) {
    out.push_back(where + "no such chip");
    return out;
  }
  std::string const entry = std::string(noun) + " ";
  Chip const& c = chips_[chip];
  for (auto const& [handle, r] : c.routes) {
    if (r.oifSetIndex != 0 && !entryAt(c, r.oifSetIndex)) {
      out.push_back(where + "route " + r.key.pretty() + " handle " + std::to_string(handle.value()) + " points at " +
                    entry + std::to_string(r.oifSetIndex) + ", which is not programmed");
    }
  }
  for (auto const& [index, e] : c.entries) {
    if (!liveIndexes.contains(index)) {
      out.push_back(where + entry + std::to_string(index) +
                    " is programmed but the library holds no set for it (leaked)");
    }
  }
  for (std::uint32_t index : liveIndexes) {
    if (!entryAt(c, index)) {
      out.push_back(where + "the library holds " + entry + std::to_string(index) + ", which is not programmed");
    }
  }
  for (std::uint32_t index : c.doubleFreed) {
    out.push_back(where + entry + std::to_string(index) + " was freed twice");
  }
  return out;
}

// ---- replication table ----

std::uint32_t ReferenceChipTables::entryAllocate(std::uint32_t chip, MrouteLib::PortVlanSet const& pvs, bool programmed,
                                                 std::uint32_t at) {
  Chip& c = chipAt(chip);
  if (injectedFailure(c, Table::replication) || full(c, Table::replication)) {
    ++c.stats.failedAllocations;
    return kInvalidIndex;
  }
  std::uint32_t index;
  if (at != kInvalidIndex) {
    if (at == 0 || at >= kFirstReservedIndex || c.entries.contains(at)) {
      ++c.stats.failedAllocations;
      return kInvalidIndex;
    }
    index = at;
    // Indexes skipped on the way to it stay free for later allocations.
    for (; c.nextIndex < at; ++c.nextIndex) c.freeIndexes.insert(c.nextIndex);
    if (c.nextIndex == at) ++c.nextIndex;
    c.freeIndexes.erase(at);
  } else if (c.freeIndexes.empty()) {
    index = c.nextIndex++;
  } else {
    index = *c.freeIndexes.begin();
    c.freeIndexes.erase(c.freeIndexes.begin());
  }
  ReplicationEntry& entry = c.entries[index];
  if (index < kDirectIndexes) {
    if (index >= c.byIndex.size()) c.byIndex.resize(index + 1, nullptr);
    c.byIndex[index] = &entry;
  }
  entry.index = index;
  entry.portVlanSet = pvs;
  entry.allocatedWith.reset();
  entry.programmed = programmed;
  ++c.stats.allocations;
  c.stats.peakEntries = std::max<std::uint64_t>(c.stats.peakEntries, c.entries.size());
  SIM_TRACE(6, "chip " << chip << " allocated oifSetIndex " << index << ": " << pvs.pretty());
  return index;
}

void ReferenceChipTables::entryProgrammedIs(std::uint32_t chip, std::uint32_t index) {
  auto& entries = chipAt(chip).entries;
  if (auto it = entries.find(index); it != entries.end()) it->second.programmed = true;
}

bool ReferenceChipTables::entryWrite(std::uint32_t chip, std::uint32_t index, MrouteLib::PortVlanSet const& pvs,
                                     char const* op) {
  Chip& c = chipAt(chip);
  auto it = c.entries.find(index);
  if (it == c.entries.end()) {
    violation(violationPrefix(chip, op) + "rewrite of oifSetIndex " + std::to_string(index) + ", which is not programmed");
    return false;
  }
  ReplicationEntry& entry = it->second;
  if (!entry.allocatedWith && !(entry.portVlanSet == pvs)) {
    entry.allocatedWith = std::make_unique<MrouteLib::PortVlanSet const>(std::move(entry.portVlanSet));
  }
  entry.portVlanSet = pvs;
  ++entry.rewrites;
  ++c.stats.inPlaceRewrites;
  SIM_TRACE(6, "chip " << chip << " rewrote oifSetIndex " << index << " in place: " << pvs.pretty());
  return true;
}

void ReferenceChipTables::entryFree(std::uint32_t chip, std::uint32_t index, char const* op) {
  if (noPortIndex(index)) return;  // shared, kept for good
  Chip& c = chipAt(chip);
  auto it = c.entries.find(index);
  if (it == c.entries.end()) {
    // Every index below nextIndex has been handed out once; one that is not
    // programmed now has been freed already.
    if (index != 0 && index < c.nextIndex) {
      ++c.stats.doubleFrees;
      c.doubleFreed.push_back(index);
      violation(violationPrefix(chip, op) + "double free of oifSetIndex " + std::to_string(index));
    } else {
      violation(violationPrefix(chip, op) + "free of oifSetIndex " + std::to_string(index) + ", which was never allocated");
    }
    return;
  }
  if (it->second.routes != 0) {
    violation(violationPrefix(chip, op) + "oifSetIndex " + std::to_string(index) + " freed while " +
              std::to_string(it->second.routes) + " route(s) still point at it");
  }
  if (index < kDirectIndexes) c.byIndex[index] = nullptr;
  c.entries.erase(it);
  c.freeIndexes.insert(index);
  ++c.stats.frees;
  SIM_TRACE(6, "chip " << chip << " freed oifSetIndex " << index);
}

// ---- route and boundary tables ----

RouteHandle ReferenceChipTables::allocateHandle(Chip& c) {
  for (;;) {
    RouteHandle const h(c.nextHandle++);
    if (h.value() == 0 || h.isNull()) continue;
    if (!c.routes.contains(h) && !c.boundaries.contains(h)) return h;
  }
}

void ReferenceChipTables::entryRefIs(Chip& c, std::uint32_t chip, std::uint32_t index, int delta, char const* op,
                                     RouteEntry const& r) {
  if (index == 0) return;
  ReplicationEntry* const entry = entryAt(c, index);
  if (!entry) {
    if (delta > 0) {
      violation(violationPrefix(chip, op) + "route " + r.key.pretty() + " handle " + std::to_string(r.handle.value()) +
                " set to oifSetIndex " + std::to_string(index) + ", which is not programmed");
    }
    return;
  }
  if (delta < 0 && entry->routes == 0) return;
  entry->routes += delta;
}

RouteHandle ReferenceChipTables::routeAllocate(std::uint32_t chip, RouteEntry entry, bool bridge, char const* op) {
  Chip& c = chipAt(chip);
  if (bridge) {
    if (injectedFailure(c, Table::boundary) || full(c, Table::boundary)) return RouteHandle::invalid();
    RouteHandle const h = allocateHandle(c);
    c.boundaries.insert(BoundaryEntry{h, entry.vrfId, entry.key, entry.acceptingVlan});
    c.boundaryIndex.add(h);
    return h;
  }
  if (injectedFailure(c, Table::route) || full(c, Table::route)) {
    ++c.stats.failedRouteAllocations;
    return RouteHandle::invalid();
  }
  if (entry.oifSetIndex == kInvalidIndex) entry.oifSetIndex = 0;
  if (auto const same = c.routeIndex.find(entry.vrfId, entry.key)) {
    for (RouteHandle other : *same) {
      if (c.routes.find(other)->acceptingVlan == entry.acceptingVlan) {
        violation(violationPrefix(chip, op) + "route " + entry.key.pretty() + " vlan " +
                  std::to_string(entry.acceptingVlan.value()) + " in VRF " + std::to_string(entry.vrfId) +
                  " is already programmed under handle " + std::to_string(other.value()));
      }
    }
  }
  entry.handle = allocateHandle(c);
  entryRefIs(c, chip, entry.oifSetIndex, +1, op, entry);
  RouteHandle const h = entry.handle;
  RouteEntry const& stored = c.routes.insert(std::move(entry));
  c.routeIndex.add(stored.handle);
  ++c.stats.routeAllocations;
  c.stats.peakRoutes = std::max<std::uint64_t>(c.stats.peakRoutes, c.routes.size());
  return h;
}

ReferenceChipTables::RouteEntry const* ReferenceChipTables::routeFor(std::uint32_t chip, RouteHandle handle,
                                                                     char const* op) {
  RouteEntry const* r = route(chip, handle);
  if (!r) violation(violationPrefix(chip, op) + "unknown route handle " + std::to_string(handle.value()));
  return r;
}

ReferenceChipTables::BoundaryEntry const* ReferenceChipTables::boundaryFor(std::uint32_t chip, RouteHandle handle,
                                                                           char const* op) {
  BoundaryEntry const* b = boundary(chip, handle);
  if (!b) violation(violationPrefix(chip, op) + "unknown boundary handle " + std::to_string(handle.value()));
  return b;
}

void ReferenceChipTables::routeEntryIs(std::uint32_t chip, RouteHandle handle, std::uint32_t index, char const* op) {
  Chip& c = chipAt(chip);
  RouteEntry& r = *c.routes.find(handle);
  if (index == kInvalidIndex) index = 0;
  entryRefIs(c, chip, r.oifSetIndex, -1, op, r);
  entryRefIs(c, chip, index, +1, op, r);
  r.oifSetIndex = index;
  ++c.stats.repoints;
}

void ReferenceChipTables::routeDel(std::uint32_t chip, RouteHandle handle) {
  Chip& c = chipAt(chip);
  RouteEntry const* r = c.routes.find(handle);
  if (!r) return;
  entryRefIs(c, chip, r->oifSetIndex, -1, "routeDel", *r);
  c.routeIndex.remove(handle);
  c.routes.erase(handle);
  ++c.stats.routeDeletes;
}

void ReferenceChipTables::boundaryDel(std::uint32_t chip, RouteHandle handle) {
  Chip& c = chipAt(chip);
  BoundaryEntry const* b = c.boundaries.find(handle);
  if (!b) return;
  c.boundaryIndex.remove(handle);
  c.boundaries.erase(handle);
}

// ---- hit bits ----

bool ReferenceChipTables::hitBit(std::uint32_t chip, std::uint16_t vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                                 bool fastdrop) const {
  Chip const& c = chipAt(chip);
  if (!c.hitsSinceClear) return false;
  auto const handles = c.routeIndex.find(vrfId, key);
  if (!handles) return false;
  hitAsked(c, *c.routes.find(*handles->begin()));
  for (RouteHandle h : *handles) {
    RouteEntry const& r = *c.routes.find(h);
    if (fastdrop) {
      if (r.fastdropHit(vlan)) return true;
    } else if (r.hit && (r.noRpf || r.acceptingVlan == vlan)) {
      return true;
    }
  }
  return false;
}

// An aging pass asks for the hit bits of a million routes one after the
// other, each a lookup by key (an index slot, then the entry it names: two
// reads from memory, the second waiting for the first), and every pass asks
// in the same order (the FIB status's). So each entry remembers which route
// was asked for after it, and a question fetches the index slot of the next
// route and the entry of the one after that (whose own fetch, one question
// earlier, brought in the next route's key for the slot's hash). A pass
// after routes changed only fetches some lines for nothing.
void ReferenceChipTables::hitAsked(Chip const& c, RouteEntry const& r) {
  if (RouteEntry const* last = c.routes.find(c.lastAsked)) last->nextAsked = r.handle;
  c.lastAsked = r.handle;
  RouteEntry const* next = c.routes.find(r.nextAsked);
  if (!next) return;
  c.routeIndex.prefetch(next->vrfId, next->key);
  c.routes.prefetch(next->nextAsked);
}

void ReferenceChipTables::hitBitsClear(std::uint32_t chip) {
  Chip& c = chipAt(chip);
  if (!c.hitsSinceClear) return;
  c.routes.forEach([](RouteEntry& r) {
    r.hit = false;
    r.fastdropHits.reset();
  });
  c.hitsSinceClear = false;
}

// ---- counters ----

std::int64_t ReferenceChipTables::counterPending(IpGenRouteKey const& key) const {
  auto it = counters_.find(key);
  return it == counters_.end() ? 0 : it->second.pending;
}

void ReferenceChipTables::counterIs(std::uint16_t vrfId, IpGenRouteKey const& key) { counters_[key].vrfId = vrfId; }

void ReferenceChipTables::counterDel(IpGenRouteKey const& key) { counters_.erase(key); }

bool ReferenceChipTables::counterClear(IpGenRouteKey const& key) {
  auto it = counters_.find(key);
  if (it == counters_.end()) return false;
  it->second.pending = 0;
  return true;
}

std::int64_t ReferenceChipTables::counterRead(IpGenRouteKey const& key) {
  auto it = counters_.find(key);
  if (it == counters_.end()) return 0;
  return std::exchange(it->second.pending, 0);
}

void ReferenceChipTables::countTraffic(RouteEntry const& r, std::uint32_t bytes) {
  if (counters_.empty()) return;
  std::int64_t const amount = counterMode_ == Routing::Multicast::Fib::CounterMode::bytes ? bytes : 1;
  if (auto it = counters_.find(r.key); it != counters_.end() && it->second.vrfId == r.vrfId) it->second.pending += amount;
  // The family's wildcard counter counts every routed packet of its VRF.
  IpGenRouteKey const wildcard = IpGenRouteKey::wildcardOf(r.key.af());
  if (r.key == wildcard) return;
  if (auto it = counters_.find(wildcard); it != counters_.end() && it->second.vrfId == r.vrfId) it->second.pending += amount;
}

// ---- traffic ----

ReferenceChipTables::ForwardResult ReferenceChipTables::forwardWithReason(std::uint32_t chip, std::uint16_t vrfId,
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

  std::vector<RoutePrefixIndex::Handles> found;
  if (!c.boundaries.empty()) {
    c.boundaryIndex.matches(vrfId, source, group, found, false);
    for (auto const& handles : found) {
      for (RouteHandle h : handles) {
        if (c.boundaries.find(h)->vlan == vlanIn) return drop(DropReason::boundary);
      }
    }
    found.clear();
  }

  c.routeIndex.matches(vrfId, source, group, found, true);
  if (found.empty()) return drop(DropReason::noRoute);
  auto const& handles = found.front();
  RouteEntry* chosen = nullptr;
  for (RouteHandle h : handles) {
    RouteEntry& r = *c.routes.find(h);
    if (r.noRpf || r.acceptingVlan == vlanIn) {
      chosen = &r;
      break;
    }
  }
  if (!chosen) {
    result.route = handles.front();
    for (RouteHandle h : handles) {
      RouteEntry& r = *c.routes.find(h);
      if (r.fastdrop && !r.fastdropHit(vlanIn)) {
        if (!r.fastdropHits) r.fastdropHits = std::make_unique<std::vector<Bridging::VlanIdOrNone>>();
        r.fastdropHits->push_back(vlanIn);
        c.hitsSinceClear = true;
      }
    }
    return drop(DropReason::rpfFail);
  }

  result.route = chosen->handle;
  result.oifSetIndex = chosen->oifSetIndex;
  chosen->hit = true;
  c.hitsSinceClear = true;
  if (auto* am = Vex::ActivityManager::current()) chosen->lastAccess = am->now();
  countTraffic(*chosen, bytes);
  ReplicationEntry const* const entry = chosen->oifSetIndex == 0 ? nullptr : entryAt(c, chosen->oifSetIndex);
  if (!entry || !entry->programmed) return drop(DropReason::noEntry);
  auto const& outputs = entry->portVlanSet.portVlan();
  result.copies.assign(outputs.begin(), outputs.end());
  result.toCpu = entry->portVlanSet.toCpu();
  ++c.stats.packetsForwarded;
  return result;
}

std::vector<MrouteLib::PortVlan> ReferenceChipTables::forward(std::uint32_t chip, std::uint16_t vrfId,
                                                              IpGenAddr const& source, IpGenAddr const& group,
                                                              VlanIdOrNone vlanIn) {
  return forwardWithReason(chip, vrfId, source, group, vlanIn).copies;
}

}  // namespace FalSim
