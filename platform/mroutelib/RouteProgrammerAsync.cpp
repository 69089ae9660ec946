// The route programmer's asynchronous chips: programming through
// MrouteLib::AsyncSwitchChip one transaction at a time, waiting for each on
// the event loop, and the retries of parked routes.
#include "platform/mroutelib/RouteProgrammerAsync.h"

#include <algorithm>

#include "platform/mroutelib/RouteProgrammerTrace.h"
#include "platform/vex/ActivityManager.h"

namespace MrouteLib {

namespace {

// The route programmer's "none"; the chip's route table has 0 for it.
std::uint16_t asyncRpaId(std::uint16_t rpaId) { return rpaId == DesiredRoute::kRpaIdNone ? 0 : rpaId; }

// A route that skips the RPF check accepts on any VLAN: the chip's route and
// its key carry none.
Bridging::VlanIdOrNone asyncVlan(bool noRpf, Bridging::VlanIdOrNone acceptingVlan) {
  return noRpf ? Bridging::VlanIdOrNone() : acceptingVlan;
}

}  // namespace

Vex::Seconds RouteProgrammer::now() const {
  auto* am = Vex::ActivityManager::current();
  return am ? am->now() : 0.0;
}

void RouteProgrammer::switchChipIs(Vex::Ptr<AsyncSwitchChip> chip, Vex::Ptr<Routing::Hardware::RouteStatus const> vrfIds) {
  if (!chip || slotOf(chip.get()) != kNoSlot) return;
  BusyScope busy(*this);
  auto state = std::make_unique<ChipState>();
  state->async = std::make_unique<AsyncChip>();
  state->async->chip = chip;
  state->async->vrfIds = std::move(vrfIds);
  chips_.push_back(std::move(state));
  std::size_t const slot = chips_.size() - 1;
  ROUTE_PROGRAMMER_TRACE(2, "switchChipIs " << chip->name() << " (asynchronous), routes: " << routes_.size());
  routesInWantedOrder().forEach([&](RouteId const& id, RouteRecord& rec) {
    rec.chipAdd(slot);
    programOnChip(slot, id, rec, false);
    writeStatus(id, rec);
  });
}

void RouteProgrammer::switchChipDel(Vex::Ptr<AsyncSwitchChip> const& chip) {
  std::size_t const slot = slotOf(chip.get());
  if (slot == kNoSlot) return;
  BusyScope busy(*this);
  ROUTE_PROGRAMMER_TRACE(2, "switchChipDel " << chip->name());
  auto const ordered = routesInWantedOrder();
  ordered.forEach([&](RouteId const& id, RouteRecord& rec) {
    routeDelOnChip(slot, id, rec);
    rec.chipDel(slot, chips_.size());
  });
  chips_.erase(chips_.begin() + static_cast<std::ptrdiff_t>(slot));
  ordered.forEach([&](RouteId const& id, RouteRecord const& rec) { writeStatus(id, rec); });
}

void RouteProgrammer::routeDelOnChip(std::size_t slot, RouteId const& id, RouteRecord& rec) {
  ChipState& cs = *chips_[slot];
  ChipRoute& cr = rec.chip(slot);
  if (!cr.handle.isNull()) {
    ++programmingCalls_;
    RouteHandle const handle = std::exchange(cr.handle, invalidRouteHandle);
    if (cs.async) {
      cs.async->chip->doDeleteRoute(handle);
    } else {
      cs.chip->doDeleteRoute(handle);
    }
  }
  if (cs.async) {
    // The groups go after the route has left the chip.
    if (auto it = cs.async->routes.find(rec.wanted); it != cs.async->routes.end()) {
      if (it->second.wait) asyncWaitEnd(rec, it->second);
      cs.async->groupIs(it->second, nullptr);
      cs.async->pendingIs(it->second, nullptr);
      cs.async->routes.erase(it);
    }
    cr.bound = nullptr;
  }
  chipFailureIs(slot, id, rec, kFailureNone);
}

RouteKeyInfo RouteProgrammer::routeKeyInfo(ChipState const& cs, RouteId const& id, RouteRecord const& rec) const {
  RouteKeyInfo info;
  if (cs.async->vrfIds) {
    if (auto vrf = cs.async->vrfIds->vrfStatus(*id.vrfName)) info.vrfId = vrf->vrfId();
  }
  info.routeKeyType = static_cast<std::uint8_t>(id.key.kind());
  info.acceptingVlan = asyncVlan(rec.noRpf, rec.acceptingVlan);
  info.bridge = rec.bridge;
  info.fastdrop = rec.fastdrop;
  return info;
}

void RouteProgrammer::programOnAsyncChip(std::size_t slot, RouteId const& id, RouteRecord& rec) {
  ChipState& cs = *chips_[slot];
  auto [it, inserted] = cs.async->routes.try_emplace(rec.wanted);
  AsyncRoute& ar = it->second;
  if (inserted) ar.id = id;
  if (ar.wait) {
    if (!reAddNeeded(rec, rec.chip(slot), ar)) {
      ar.again = true;
      return;
    }
    // The chip's route in its old form (accepting VLAN, RPA, flags) is no
    // longer wanted: the attempt waiting on it gives way to the re-add, which
    // deletes it now rather than when the transaction completes.
    asyncWaitEnd(rec, ar);
    ar.again = false;
  }
  asyncStep(cs, slot, rec, ar, true);
}

bool RouteProgrammer::reAddNeeded(RouteRecord const& rec, ChipRoute const& cr, AsyncRoute const& ar) {
  Bridging::VlanIdOrNone const vlan = asyncVlan(rec.noRpf, rec.acceptingVlan);
  return !cr.handle.isNull() && (ar.vlan != vlan || ar.rpaId != asyncRpaId(rec.rpaId) || ar.bridge != rec.bridge ||
                                 ar.fastdrop != rec.fastdrop);
}

void RouteProgrammer::asyncStep(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar, bool fresh) {
  AsyncSwitchChip& chip = *cs.async->chip;
  ChipRoute& cr = rec.chip(slot);
  RouteId const& id = ar.id;
  if (fresh) ar.since = now();
  Bridging::VlanIdOrNone const vlan = asyncVlan(rec.noRpf, rec.acceptingVlan);
  std::uint16_t const rpaId = asyncRpaId(rec.rpaId);
  bool const reAdd = reAddNeeded(rec, cr, ar);
  if (!reAdd && !cr.handle.isNull() && (rec.bridge || cr.bound == rec.oifSet)) {
    asyncAttemptEnd(cs, slot, rec, ar, kFailureNone);
    return;
  }
  // Allocated before a re-added route is deleted, so that the route's own
  // group is shared rather than given back and allocated again.
  Vex::Ptr<MtableOifSet> set;
  XactPtr groupXact;
  if (!rec.bridge) {
    ++programmingCalls_;
    bool const frr = !rec.oifSet->portVlanSet().intfId().isEmpty();
    groupXact = chip.doAllocateMtableOifSet(routeKeyInfo(cs, id, rec), rec.oifSet, nullptr,
                                            AsyncSwitchChip::kInvalidMulticastId, frr);
    set = chip.oifSetResult();
    chip.oifSetResultIs(nullptr);
    if (!set) {
      std::uint32_t const failure = chip.mrouteFailureReason();
      // The chip's route in its old form (accepting VLAN, kind, flags) is
      // no longer wanted: it goes now, not when the new one fits.
      if (reAdd) deleteAsyncRoute(cs, cr, ar);
      asyncAttemptEnd(cs, slot, rec, ar, failure != kFailureNone ? failure : AsyncSwitchChip::kFailureNoMulticastId);
      return;
    }
    // Other routes of the chip hold a group that is shared (a route re-added
    // on its own group shares nothing).
    std::uint32_t const own = (ar.group == set ? 1u : 0u) + (ar.pending == set ? 1u : 0u);
    if (cs.async->holders(set.get()) > own) ++groupsShared_;
  }
  if (reAdd) deleteAsyncRoute(cs, cr, ar);
  if (cr.handle.isNull()) {
    ++programmingCalls_;
    chip.doAllocateRoute(id.key, vlan, rec.bridge, rpaId, *id.vrfName, rec.fastdrop);
    RouteHandle const handle = chip.routeHandle();
    if (handle.isNull()) {
      std::uint32_t const failure = chip.mrouteFailureReason();
      asyncAttemptEnd(cs, slot, rec, ar, failure != kFailureNone ? failure : AsyncSwitchChip::kFailureRouteRefused);
      return;
    }
    cr.handle = handle;
    ar.vlan = vlan;
    ar.rpaId = rpaId;
    ar.bridge = rec.bridge;
    ar.fastdrop = rec.fastdrop;
    if (rec.bridge) {
      asyncAttemptEnd(cs, slot, rec, ar, kFailureNone);
      return;
    }
  }
  cs.async->pendingIs(ar, std::move(set));
  ar.pendingOifSet = rec.oifSet;
  if (asyncWait(cs, rec, ar, groupXact, false)) return;
  asyncBind(cs, slot, rec, ar, groupXact);
}

void RouteProgrammer::deleteAsyncRoute(ChipState& cs, ChipRoute& cr, AsyncRoute& ar) {
  ++programmingCalls_;
  cs.async->chip->doDeleteRoute(std::exchange(cr.handle, invalidRouteHandle));
  cr.bound = nullptr;
  cs.async->groupIs(ar, nullptr);
  // A binding that was on its way was aborted with the route.
  cs.async->pendingIs(ar, nullptr);
  ar.pendingOifSet = nullptr;
}

void RouteProgrammer::asyncBind(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar,
                                XactPtr const& groupXact) {
  AsyncSwitchChip& chip = *cs.async->chip;
  if (groupXact && groupXact->failed()) {
    ++programmingCalls_;
    std::uint32_t const reason = chip.doGetOifSetXactFailureReason(groupXact);
    cs.async->pendingIs(ar, nullptr);
    ar.pendingOifSet = nullptr;
    asyncAttemptEnd(cs, slot, rec, ar, reason != kFailureNone ? reason : kFailureOther);
    return;
  }
  ++programmingCalls_;
  XactPtr const ingressXact = chip.doSetMtableOifSet(rec.chip(slot).handle, ar.pending, groupXact);
  if (asyncWait(cs, rec, ar, ingressXact, true)) return;
  asyncBound(cs, slot, rec, ar, ingressXact);
}

void RouteProgrammer::asyncBound(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar,
                                 XactPtr const& ingressXact) {
  if (ingressXact && ingressXact->failed()) {
    ++programmingCalls_;
    std::uint32_t const reason = cs.async->chip->doGetIngressXactFailureReason(ingressXact);
    // The chip's route still points at the group it had, which is still held.
    cs.async->pendingIs(ar, nullptr);
    ar.pendingOifSet = nullptr;
    asyncAttemptEnd(cs, slot, rec, ar, reason != kFailureNone ? reason : kFailureOther);
    return;
  }
  // The group it was bound to before goes now that nothing points at it.
  Vex::Ptr<MtableOifSet> bound = ar.pending;
  cs.async->groupIs(ar, std::move(bound));
  cs.async->pendingIs(ar, nullptr);
  rec.chip(slot).bound = std::move(ar.pendingOifSet);
  asyncAttemptEnd(cs, slot, rec, ar, kFailureNone);
}

void RouteProgrammer::asyncAttemptEnd(ChipState& cs, std::size_t slot, RouteRecord& rec, AsyncRoute& ar,
                                      std::uint32_t failure) {
  longestWait_ = std::max(longestWait_, now() - ar.since);
  if (failure != kFailureNone) {
    ROUTE_PROGRAMMER_TRACE(2, "Parking route: " << *ar.id.vrfName << ' ' << ar.id.key << ", switch: " << cs.name()
                                                << ", failure: 0x" << std::hex << failure << std::dec);
  }
  chipFailureIs(slot, ar.id, rec, failure);
  if (failure != kFailureNone) asyncRetryArm(cs);
  if (ar.again) {
    ar.again = false;
    asyncStep(cs, slot, rec, ar, true);
  }
}

bool RouteProgrammer::asyncWait(ChipState& cs, RouteRecord& rec, AsyncRoute& ar, XactPtr const& xact, bool ingress) {
  if (!xact || !xact->pending()) return false;
  bool const before = unsettled(rec);
  ar.wait = std::make_unique<XactWait>(this, &cs, rec.wanted, ingress);
  ar.wait->notifierIs(xact);
  if (rec.waitingChips++ == 0) ++routesWaiting_;
  settledCount(rec, before);
  return true;
}

void RouteProgrammer::asyncWaitEnd(RouteRecord& rec, AsyncRoute& ar) {
  ar.wait.reset();
  bool const before = unsettled(rec);
  if (--rec.waitingChips == 0) --routesWaiting_;
  settledCount(rec, before);
}

void RouteProgrammer::asyncXactDone(ChipState& cs, std::uint64_t wanted, bool ingress, XactPtr const& xact) {
  auto it = cs.async->routes.find(wanted);
  if (it == cs.async->routes.end()) return;
  AsyncRoute& ar = it->second;
  RouteId const id = ar.id;
  RouteRecord* held = routes_.find(id);
  if (!held) return;
  RouteRecord& rec = *held;
  XactPtr const done = xact;  // the waiter that holds it goes now
  asyncWaitEnd(rec, ar);
  std::size_t const slot = slotOf(cs.entity());
  if (ingress) {
    asyncBound(cs, slot, rec, ar, done);
  } else {
    asyncBind(cs, slot, rec, ar, done);
  }
  writeStatus(id, rec);
}

void RouteProgrammer::retryParked(AsyncSwitchChip const* chip) {
  std::size_t const slot = slotOf(chip);
  if (slot != kNoSlot && chips_[slot]->async) asyncRetryPass(*chips_[slot]);
}

void RouteProgrammer::asyncRetryArm(ChipState& cs) {
  AsyncChip& ac = *cs.async;
  if (ac.parked.empty() || (ac.retryClock && ac.retryClock->scheduled())) return;
  if (!ac.retryClock) {
    auto* am = Vex::ActivityManager::current();
    if (!am) return;
    ac.retryClock = am->clockNew();
    ac.retryReactor = std::make_unique<VexRetryClock>(this, &cs);
    ac.retryReactor->notifierIs(ac.retryClock);
  }
  ac.retryClock->timeMinIs(now() + asyncRetryInterval_);
}

void RouteProgrammer::asyncRetryPass(ChipState& cs) {
  BusyScope busy(*this);
  AsyncChip& ac = *cs.async;
  // A snapshot: routes parked again by this pass wait for the next one.
  Parked const work = ac.parked;
  std::size_t const slot = slotOf(cs.entity());
  if (!work.empty()) ROUTE_PROGRAMMER_TRACE(5, "Retrying parked routes: " << work.size() << ", switch: " << cs.name());
  for (auto const& [wanted, id] : work) {
    RouteRecord* rec = routes_.find(id);
    if (!rec || rec->chip(slot).failure == kFailureNone) continue;
    auto ar = ac.routes.find(wanted);
    if (ar != ac.routes.end() && ar->second.wait) continue;  // a retry is on its way already
    ++retries_;
    programOnChip(slot, id, *rec, false);
    writeStatus(id, *rec);
  }
  asyncRetryArm(cs);
}

}  // namespace MrouteLib
