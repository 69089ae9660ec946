#include "kernel/KernelChip.h"

#include <cstring>
#include <sstream>

#include "kernel/KernelTrace.h"
#include "kernel/MrouteTable.h"
#include "sync/MtableOifSet.h"

namespace FalKernel {

using Bridging::VlanIdOrNone;
using MrouteLib::RouteHandle;

namespace {

constexpr char const* kSource = "FalKernelChip";

std::string describeErrno(int err) { return std::string(std::strerror(err)) + " (errno " + std::to_string(err) + ")"; }

}  // namespace

KernelChip::KernelChip(Vex::Name name, std::uint32_t switchId, KernelPortMap& ports, Capacity capacity)
    : MrouteSmHelper(std::move(name)), switchId_(switchId), ports_(ports), capacity_(capacity) {}

// The sockets close with the tables: the kernel flushes their entries and VIFs.
KernelChip::~KernelChip() = default;

bool KernelChip::mine(std::uint32_t switchId, char const* op) const {
  if (switchId == switchId_) return true;
  KERNEL_TRACE(1, kSource, op << ": switch " << switchId << " is not this chip's (" << switchId_ << ")");
  return false;
}

int KernelChip::kernelError(char const* op, int err, std::string const& what) {
  ++stats_.kernelErrors;
  lastError_ = err;
  KERNEL_TRACE(1, kSource, op << ": the kernel refused " << what << ": " << describeErrno(err));
  return err;
}

void KernelChip::findingIs(std::string text) {
  KERNEL_TRACE(1, kSource, text);
  verifyFindings_.push_back(std::move(text));
}

KernelChip::Entry const* KernelChip::entry(std::uint32_t index) const {
  auto it = entries_.find(index);
  return it == entries_.end() ? nullptr : &it->second;
}

KernelChip::Route* KernelChip::slot(RouteHandle handle) {
  std::uint32_t const h = handle.value();
  if (h == 0 || h > routes_.size() || !routes_[h - 1].live) return nullptr;
  return &routes_[h - 1];
}

KernelChip::Route const* KernelChip::route(RouteHandle handle) const {
  return const_cast<KernelChip*>(this)->slot(handle);
}

KernelChip::Route const* KernelChip::route(std::uint16_t vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan) const {
  auto it = byKey_.find(RouteId{vrfId, key});
  if (it == byKey_.end()) return nullptr;
  Route const* r = route(RouteHandle(it->second));
  return r && r->acceptingVlan == vlan ? r : nullptr;
}

int KernelChip::vif(int ifindex) const {
  auto it = vifByIfindex_.find(ifindex);
  return it == vifByIfindex_.end() ? -1 : it->second;
}

int KernelChip::vifsInUse() const { return static_cast<int>(vifByIfindex_.size()); }

// ---- agent and chip start-up ----

void KernelChip::mrouteInit(bool initializing) { mrouteInitialized_ = initializing; }

void KernelChip::handleMulticastRouting(bool enabled) { multicastRoutingEnabled_ = enabled; }

void KernelChip::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) { counterMode_ = mode; }

void KernelChip::verifyMulticastRouting(bool enabled) {
  if (enabled != multicastRoutingEnabled_) {
    findingIs(std::string("verifyMulticastRouting: the library has multicast routing ") +
              (enabled ? "enabled" : "disabled") + ", the chip " + (multicastRoutingEnabled_ ? "enabled" : "disabled"));
  }
}

void KernelChip::mrouteSwitchInit(std::uint32_t switchId, bool initializing) {
  if (mine(switchId, "mrouteSwitchInit")) switchInitialized_ = initializing;
}

// ---- virtual interfaces and tables ----

int KernelChip::reserveVif(int ifindex) {
  if (auto it = vifByIfindex_.find(ifindex); it != vifByIfindex_.end()) {
    ++vifs_[static_cast<std::size_t>(it->second)].users;
    return it->second;
  }
  for (int v = 0; v < kMaxVifs; ++v) {
    Vif& slot = vifs_[static_cast<std::size_t>(v)];
    if (slot.ifindex != 0) continue;
    slot = Vif{ifindex, 1};
    vifByIfindex_[ifindex] = v;
    return v;
  }
  return -1;
}

void KernelChip::releaseVifs(VifSet vifs) {
  for (int v = 0; v < kMaxVifs; ++v) {
    if (!vifs.test(static_cast<std::size_t>(v))) continue;
    Vif& slot = vifs_[static_cast<std::size_t>(v)];
    if (slot.users == 0 || --slot.users > 0) continue;
    for (auto& [id, t] : tables_) {
      if (!t.vifs.test(static_cast<std::size_t>(v))) continue;
      if (int const err = t.socket->delVif(v)) kernelError("releaseVif", err, "deleting VIF " + std::to_string(v));
      t.vifs.reset(static_cast<std::size_t>(v));
    }
    KERNEL_TRACE(6, kSource, "VIF " << v << " (ifindex " << slot.ifindex << ") released");
    vifByIfindex_.erase(slot.ifindex);
    slot = Vif{};
  }
}

bool KernelChip::reserveOutputs(MrouteLib::PortVlanSet const& set, VifSet& outputs, VifSet& reserved, char const* op) {
  absl::flat_hash_map<int, bool> devices;  // ifindex -> replicated to (not only a backup)
  for (auto const& list : {&set.portVlan(), &set.portVlanFrr()}) {
    bool const replicated = list == &set.portVlan();
    for (MrouteLib::PortVlan pv : *list) {
      int const ifindex = ports_.outputIfindex(pv);
      if (ifindex <= 0) {
        KERNEL_TRACE(2, kSource, op << ": no device for output " << pv.stringValue() << ": entry refused");
        return false;
      }
      devices[ifindex] = devices[ifindex] || replicated;
    }
  }
  int fresh = 0;
  for (auto const& [ifindex, replicated] : devices) fresh += vifByIfindex_.contains(ifindex) ? 0 : 1;
  if (vifsInUse() + fresh > kMaxVifs) {
    KERNEL_TRACE(2, kSource, op << ": " << fresh << " more virtual interfaces needed, " << (kMaxVifs - vifsInUse())
                                << " of " << kMaxVifs << " free: replication table full");
    return false;
  }
  outputs.reset();
  reserved.reset();
  for (auto const& [ifindex, replicated] : devices) {
    auto const v = static_cast<std::size_t>(reserveVif(ifindex));
    reserved.set(v);
    if (replicated) outputs.set(v);
  }
  return true;
}

KernelChip::Table* KernelChip::table(std::uint16_t vrfId, Netcore::AddressFamily af, char const* op) {
  std::uint32_t const id = mrouteTableOf(vrfId, af);
  auto [it, added] = tables_.try_emplace({id, af});
  if (!added) return &it->second;
  auto const type = MrouteSocket::socketType(af);
  int const fd = ports_.openSocket(type.domain, type.type, type.protocol);
  int const openErr = fd < 0 ? errno : 0;
  auto socket = std::make_unique<MrouteSocket>(af, id, fd);
  int const err = openErr ? openErr : socket->start();
  if (err) {
    tables_.erase(it);
    kernelError(op, err, "multicast routing on table " + std::to_string(id));
    return nullptr;
  }
  KERNEL_TRACE(6, kSource, "multicast routing started on table " << id << (af == Netcore::AddressFamily::ipv6 ? " (IPv6)" : ""));
  it->second.socket = std::move(socket);
  return &it->second;
}

int KernelChip::programMfc(Route const& r, char const* op) {
  Table* t = table(r.vrfId, r.key.af(), op);
  if (!t) return lastError_;
  VifSet outputs;
  if (!r.boundary && r.oifSetIndex != 0) {
    if (Entry const* e = entry(r.oifSetIndex)) outputs = e->outputs;
  }
  // The kernel finds a (*,G) entry only for packets from a VIF among its
  // outputs; it never sends the copy back there.
  if (r.key.isStarG()) outputs.set(static_cast<std::size_t>(r.inputVif));
  VifSet const missing = (outputs | VifSet().set(static_cast<std::size_t>(r.inputVif))) & ~t->vifs;
  for (int v = 0; v < kMaxVifs; ++v) {
    if (!missing.test(static_cast<std::size_t>(v))) continue;
    if (int const err = t->socket->addVif(v, vifs_[static_cast<std::size_t>(v)].ifindex)) {
      return kernelError(op, err, "VIF " + std::to_string(v) + " on ifindex " +
                                      std::to_string(vifs_[static_cast<std::size_t>(v)].ifindex));
    }
    t->vifs.set(static_cast<std::size_t>(v));
  }
  auto const source = r.key.source().address();
  auto const group = r.key.group().address();
  if (int const err = t->socket->addMfc(source, group, r.inputVif, outputs)) {
    return kernelError(op, err, "MFC entry " + r.key.pretty());
  }
  ++stats_.mfcWrites;
  KERNEL_TRACE(6, kSource, op << ": MFC " << r.key.pretty() << " table " << mrouteTableOf(r.vrfId, r.key.af()) << " iif VIF "
                              << r.inputVif << " oifs " << outputs.to_string());
  return 0;
}

// ---- replication table ----

std::uint32_t KernelChip::writeEntry(std::uint32_t oifSetIndex, OifSetPtr const& oifSet, char const* op) {
  if (!oifSet) {
    KERNEL_TRACE(1, kSource, op << ": null OIF set");
    return kInvalidIndex;
  }
  MrouteLib::PortVlanSet const& pvs = oifSet->portVlanSet();
  if (oifSetIndex != 0 && oifSetIndex != kFreshIndex) {
    auto it = entries_.find(oifSetIndex);
    if (it == entries_.end()) {
      KERNEL_TRACE(1, kSource, op << ": rewrite of oifSetIndex " << oifSetIndex << ", which is not programmed");
      return kInvalidIndex;
    }
    Entry& e = it->second;
    VifSet outputs, reserved;
    if (!reserveOutputs(pvs, outputs, reserved, op)) {
      ++stats_.refusedEntries;
      return kInvalidIndex;
    }
    VifSet const previous = e.reserved;
    e.portVlanSet = pvs;
    e.outputs = outputs;
    e.reserved = reserved;
    ++e.rewrites;
    ++stats_.inPlaceRewrites;
    for (std::uint32_t h : e.routes) programMfc(*slot(RouteHandle(h)), op);
    releaseVifs(previous);
    KERNEL_TRACE(6, kSource, op << ": rewrote oifSetIndex " << oifSetIndex << " in place for " << e.routes.size()
                                << " routes: " << pvs.pretty());
    return oifSetIndex;
  }
  // The library counts on an entry without outputs always being given.
  bool const empty = pvs.portVlanSize() == 0 && pvs.portVlanFrrSize() == 0 && pvs.natVlanSize() == 0;
  if (!empty && entries_.size() >= capacity_.replicationEntries) {
    KERNEL_TRACE(2, kSource, op << ": " << entries_.size() << " replication entries, the capacity: table full");
    ++stats_.refusedEntries;
    return kInvalidIndex;
  }
  Entry e;
  if (!reserveOutputs(pvs, e.outputs, e.reserved, op)) {
    ++stats_.refusedEntries;
    return kInvalidIndex;
  }
  std::uint32_t index;
  if (freeIndexes_.empty()) {
    index = nextIndex_++;
  } else {
    index = *freeIndexes_.begin();
    freeIndexes_.erase(freeIndexes_.begin());
  }
  e.index = index;
  e.portVlanSet = pvs;
  entries_.emplace(index, std::move(e));
  ++stats_.entryAllocations;
  KERNEL_TRACE(6, kSource, op << ": allocated oifSetIndex " << index << ": " << pvs.pretty());
  return index;
}

std::uint32_t KernelChip::doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  if (!mine(switchId, "doAllocateMtableOifSet")) return kInvalidIndex;
  return writeEntry(oifSetIndex, oifSet, "doAllocateMtableOifSet");
}

std::uint32_t KernelChip::doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  if (!mine(switchId, "doReallocateMtableOifSet")) return kInvalidIndex;
  return writeEntry(oifSetIndex, oifSet, "doReallocateMtableOifSet");
}

void KernelChip::handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) {
  char const* const op = "handleFreeMtableOifSet";
  if (!mine(switchId, op) || !oifSet) return;
  auto it = entries_.find(oifSet->oifSetIndex());
  if (it == entries_.end()) {
    KERNEL_TRACE(1, kSource, op << ": free of oifSetIndex " << oifSet->oifSetIndex() << ", which is not programmed");
    return;
  }
  Entry& e = it->second;
  if (!e.routes.empty()) {
    // Should not happen; leave no route pointing at replication that is gone.
    KERNEL_TRACE(1, kSource, op << ": oifSetIndex " << e.index << " freed while " << e.routes.size()
                                << " routes use it: they replicate nowhere now");
    for (std::uint32_t h : e.routes) {
      Route& r = *slot(RouteHandle(h));
      r.oifSetIndex = 0;
      programMfc(r, op);
    }
  }
  releaseVifs(e.reserved);
  freeIndexes_.insert(e.index);
  entries_.erase(it);
  ++stats_.entryFrees;
}

bool KernelChip::mtableFull(std::uint32_t switchId) {
  return mine(switchId, "mtableFull") && entries_.size() >= capacity_.replicationEntries;
}

bool KernelChip::verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) {
  Entry const* e = entry(oifSetIndex);
  return e && e->portVlanSet == portVlanSet;
}

// ---- routes ----

bool KernelChip::representable(IpGenRouteKey const& key) {
  auto const af = key.af();
  if (af != Netcore::AddressFamily::ipv4 && af != Netcore::AddressFamily::ipv6) return false;
  if (!key.group().isHost() || !key.group().isMulticast()) return false;
  return key.source().isHost() || key.isStarG();
}

RouteHandle KernelChip::allocateRoute(Route r, char const* op) {
  if (routeCount_ >= capacity_.routes) {
    KERNEL_TRACE(2, kSource, op << ": " << routeCount_ << " MFC entries, the capacity: route table full");
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  if (!representable(r.key)) {
    KERNEL_TRACE(2, kSource, op << ": " << r.key.pretty() << " has no form in the kernel's cache (host or (*,G) only)");
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  RouteId const id{r.vrfId, r.key};
  if (byKey_.contains(id)) {
    KERNEL_TRACE(2, kSource, op << ": VRF " << r.vrfId << " already has an MFC entry for " << r.key.pretty());
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  if (!r.boundary && r.oifSetIndex != 0 && !entries_.contains(r.oifSetIndex)) {
    KERNEL_TRACE(1, kSource, op << ": oifSetIndex " << r.oifSetIndex << " is not programmed");
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  int const input = ports_.inputIfindex(r.vrfId, r.acceptingVlan);
  r.inputVif = input > 0 ? reserveVif(input) : -1;
  if (r.inputVif < 0) {
    KERNEL_TRACE(2, kSource, op << ": " << (input > 0 ? "no virtual interface free" : "no device") << " for VLAN "
                                << r.acceptingVlan.value() << " of VRF " << r.vrfId << ": " << r.key.pretty()
                                << " refused");
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  if (programMfc(r, op) != 0) {
    releaseVifs(VifSet().set(static_cast<std::size_t>(r.inputVif)));
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  std::uint32_t h;
  if (freeHandles_.empty()) {
    routes_.emplace_back();
    h = static_cast<std::uint32_t>(routes_.size());
  } else {
    h = freeHandles_.back();
    freeHandles_.pop_back();
  }
  r.handle = RouteHandle(h);
  r.live = true;
  if (!r.boundary && r.oifSetIndex != 0) entries_.at(r.oifSetIndex).routes.insert(h);
  byKey_.emplace(id, h);
  routes_[h - 1] = std::move(r);
  ++routeCount_;
  ++stats_.routeAllocations;
  return RouteHandle(h);
}

RouteHandle KernelChip::doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                         VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                                         bool fastdrop, std::uint16_t rpaId) {
  char const* const op = "doAllocateMroute";
  if (!mine(switchId, op)) return RouteHandle::invalid();
  if (acceptingVlanId.value() == 0) {
    KERNEL_TRACE(2, kSource, op << ": " << key.pretty() << " without an accepting VLAN has no input: refused");
    ++stats_.refusedRoutes;
    return RouteHandle::invalid();
  }
  Route r;
  r.vrfId = vrfId;
  r.key = key;
  r.acceptingVlan = acceptingVlanId;
  r.boundary = bridge;
  r.oifSetIndex = bridge ? 0 : oifSetIndex;
  return allocateRoute(std::move(r), op);
}

RouteHandle KernelChip::doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                              bool bridge, std::uint32_t oifSetIndex, bool fastdrop,
                                              std::uint16_t rpaId) {
  char const* const op = "doAllocateMrouteNoRpf";
  if (!mine(switchId, op)) return RouteHandle::invalid();
  // Every MFC entry accepts on one VIF: the kernel always checks the input.
  KERNEL_TRACE(2, kSource, op << ": " << key.pretty() << " in VRF " << vrfId
                              << ": the kernel has no route without an input check: refused");
  ++stats_.refusedRoutes;
  return RouteHandle::invalid();
}

void KernelChip::doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                   Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) {
  char const* const op = "doSetMtableOifSet";
  if (!mine(switchId, op)) return;
  Route* found = slot(handle);
  if (!found || found->boundary) {
    KERNEL_TRACE(1, kSource, op << ": handle " << handle << " is not a route of this chip");
    return;
  }
  if (oifSetIndex != 0 && !entries_.contains(oifSetIndex)) {
    KERNEL_TRACE(1, kSource, op << ": oifSetIndex " << oifSetIndex << " is not programmed");
    return;
  }
  Route& r = *found;
  // The library binds a new route to the entry it was just programmed with:
  // the kernel already holds it so.
  if (r.oifSetIndex == oifSetIndex) return;
  if (r.oifSetIndex != 0) {
    if (auto e = entries_.find(r.oifSetIndex); e != entries_.end()) e->second.routes.erase(handle.value());
  }
  r.oifSetIndex = oifSetIndex;
  if (oifSetIndex != 0) entries_.at(oifSetIndex).routes.insert(handle.value());
  ++stats_.repoints;
  programMfc(r, op);
}

void KernelChip::deleteRoute(RouteHandle handle, bool boundary, char const* op) {
  Route* found = slot(handle);
  if (!found || found->boundary != boundary) {
    KERNEL_TRACE(1, kSource, op << ": handle " << handle << " is not a " << (boundary ? "boundary" : "route")
                                << " of this chip");
    return;
  }
  Route& r = *found;
  if (!counters_.empty()) creditCounters(r);
  if (Table* t = table(r.vrfId, r.key.af(), op)) {
    if (int const err = t->socket->delMfc(r.key.source().address(), r.key.group().address())) {
      kernelError(op, err, "deleting MFC entry " + r.key.pretty());
    }
  }
  if (r.oifSetIndex != 0) {
    if (auto e = entries_.find(r.oifSetIndex); e != entries_.end()) e->second.routes.erase(handle.value());
  }
  releaseVifs(VifSet().set(static_cast<std::size_t>(r.inputVif)));
  byKey_.erase(RouteId{r.vrfId, r.key});
  r = Route{};
  --routeCount_;
  freeHandles_.push_back(handle.value());
  ++stats_.routeDeletes;
}

void KernelChip::doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                Vex::Ptr<Fal::Route const> const& route) {
  if (mine(switchId, "doDeleteMroute")) deleteRoute(handle, false, "doDeleteMroute");
}

void KernelChip::doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                        Vex::Ptr<Fal::Boundary const> const& boundary) {
  if (mine(switchId, "doDeleteMrouteBoundary")) deleteRoute(handle, true, "doDeleteMrouteBoundary");
}

void KernelChip::doCommitMrouteBatch() {
  for (auto& [id, t] : tables_) t.socket->drain();
}

bool KernelChip::mrouteFull(std::uint32_t switchId) {
  return mine(switchId, "mrouteFull") && routeCount_ >= capacity_.routes;
}

// Boundaries are MFC entries too: one table for both.
bool KernelChip::mrouteBoundaryFull(std::uint32_t switchId) { return mrouteFull(switchId); }

}  // namespace FalKernel
