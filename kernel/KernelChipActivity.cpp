// KernelChip: what the kernel counted (hit bits and counters) and the
// verification of the library's routes against the chip and the kernel.
#include "kernel/KernelChip.h"

#include "kernel/KernelTrace.h"
#include "sync/MtableOifSet.h"
#include "sync/Boundary.h"
#include "sync/Route.h"

namespace FalKernel {

using Bridging::VlanIdOrNone;
using MrouteLib::RouteHandle;

namespace {

constexpr char const* kSource = "FalKernelChip";

}  // namespace

std::optional<MrouteSocket::Counts> KernelChip::kernelCounts(RouteHandle handle) {
  Route const* r = route(handle);
  if (!r) return std::nullopt;
  Table* t = table(r->vrfId, r->key.af(), "kernelCounts");
  if (!t) return std::nullopt;
  MrouteSocket::Counts counts;
  if (int const err = t->socket->counts(r->key.source().address(), r->key.group().address(), counts)) {
    if (err != ENOENT && err != EADDRNOTAVAIL) kernelError("kernelCounts", err, "the counts of " + r->key.pretty());
    return std::nullopt;
  }
  return counts;
}

// ---- hit bits ----

bool KernelChip::mrouteHitBitCacheRefresh(std::uint32_t switchId) {
  if (!mine(switchId, "mrouteHitBitCacheRefresh")) return false;
  forEachRoute([&](Route& r) {
    if (auto counts = kernelCounts(r.handle)) r.hitSeen = *counts;
  });
  return true;
}

void KernelChip::mrouteHitBitCacheClear(std::uint32_t switchId) {
  if (!mine(switchId, "mrouteHitBitCacheClear")) return;
  forEachRoute([](Route& r) { r.hitCleared = r.hitSeen; });
}

bool KernelChip::mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, VlanIdOrNone vlan,
                              bool fastdrop) {
  if (!mine(switchId, "mrouteHitBit")) return false;
  auto it = byKey_.find(RouteId{vrfId, key});
  if (it == byKey_.end()) return false;
  Route const& r = *slot(RouteHandle(it->second));
  // A fast-drop entry is asked for by the VLAN it drops on: any packet that
  // came in on a wrong interface.
  if (fastdrop) return r.hitSeen.wrongIf > r.hitCleared.wrongIf;
  return r.acceptingVlan == vlan && r.hitSeen.forwarded() > r.hitCleared.forwarded();
}

// ---- counters ----

std::int64_t KernelChip::amount(MrouteSocket::Counts const& c) const {
  return static_cast<std::int64_t>(counterMode_ == Routing::Multicast::Fib::CounterMode::bytes ? c.bytes : c.forwarded());
}

// Adds what the route forwarded since it was last credited to every counter
// covering it: its own key's and its family's wildcard, in its VRF.
void KernelChip::creditCounters(Route& r) {
  if (r.boundary) return;
  auto const now = kernelCounts(r.handle);
  if (!now) return;
  MrouteSocket::Counts const delta{now->packets - r.credited.packets, now->bytes - r.credited.bytes,
                                   now->wrongIf - r.credited.wrongIf};
  r.credited = *now;
  std::int64_t const n = amount(delta);
  if (n == 0 || counters_.empty()) return;
  if (auto c = counters_.find(r.key); c != counters_.end() && c->second.vrfId == r.vrfId) c->second.pending += n;
  IpGenRouteKey const wildcard = IpGenRouteKey::wildcardOf(r.key.af());
  if (auto c = counters_.find(wildcard); c != counters_.end() && c->second.vrfId == r.vrfId) c->second.pending += n;
}

bool KernelChip::doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) {
  // Traffic before the counter existed is not its own.
  forEachRoute([this](Route& r) { creditCounters(r); });
  counters_[key] = Counter{vrfId, 0};
  return true;
}

void KernelChip::doDeleteMrouteCounter(IpGenRouteKey const& key) { counters_.erase(key); }

void KernelChip::ageOutHwMcastCounter(IpGenRouteKey const& key) { counters_.erase(key); }

bool KernelChip::doClearMrouteCounter(IpGenRouteKey const& key) {
  auto it = counters_.find(key);
  if (it == counters_.end()) return false;
  forEachRoute([this](Route& r) { creditCounters(r); });
  counters_.at(key).pending = 0;
  return true;
}

std::int64_t KernelChip::doReadMrouteCounter(IpGenRouteKey const& key) {
  auto it = counters_.find(key);
  if (it == counters_.end()) return 0;
  std::uint16_t const vrfId = it->second.vrfId;
  if (key.isWildcard()) {
    forEachRoute([&](Route& r) {
      if (r.vrfId == vrfId && r.key.af() == key.af()) creditCounters(r);
    });
  } else if (auto h = byKey_.find(RouteId{vrfId, key}); h != byKey_.end()) {
    creditCounters(*slot(RouteHandle(h->second)));
  }
  Counter& c = counters_.at(key);
  std::int64_t const n = c.pending;
  c.pending = 0;
  return n;
}

// ---- verification ----

void KernelChip::verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) {
  if (!mine(switchId, "verifyMroute") || !route) return;
  std::string const what = "verifyMroute: route " + route->key().pretty() + " handle " +
                           std::to_string(route->routeHandle().value()) + ": ";
  Route const* r = this->route(route->routeHandle());
  if (!r || r->boundary) return findingIs(what + "not in the chip's route table");
  if (r->key != route->key() || r->vrfId != vrfId || r->acceptingVlan != route->acceptingVlanId()) {
    return findingIs(what + "the chip holds " + r->key.pretty() + " in VRF " + std::to_string(r->vrfId) + " on VLAN " +
                     std::to_string(r->acceptingVlan.value()));
  }
  if (auto const& set = route->mtableOifSet(); set && set->oifSetIndex() != r->oifSetIndex) {
    return findingIs(what + "the chip replicates it through oifSetIndex " + std::to_string(r->oifSetIndex) +
                     ", the library through " + std::to_string(set->oifSetIndex()));
  }
  if (!kernelCounts(r->handle)) findingIs(what + "the kernel holds no MFC entry for it");
}

void KernelChip::verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                                      Vex::Ptr<Fal::Boundary const> const& boundary) {
  if (!mine(switchId, "verifyMrouteBoundary") || !boundary) return;
  std::string const what = "verifyMrouteBoundary: boundary " + boundary->key().pretty() + " handle " +
                           std::to_string(boundary->routeHandle().value()) + ": ";
  Route const* r = route(boundary->routeHandle());
  if (!r || !r->boundary) return findingIs(what + "not in the chip's route table as a boundary");
  if (r->key != boundary->key() || r->vrfId != vrfId || r->acceptingVlan.value() != boundary->acceptingVlanId().value()) {
    return findingIs(what + "the chip holds " + r->key.pretty() + " in VRF " + std::to_string(r->vrfId) + " on VLAN " +
                     std::to_string(r->acceptingVlan.value()));
  }
  if (!kernelCounts(r->handle)) findingIs(what + "the kernel holds no MFC entry for it");
}

}  // namespace FalKernel
