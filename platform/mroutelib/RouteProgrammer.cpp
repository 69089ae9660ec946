#include "platform/mroutelib/RouteProgrammer.h"

#include "platform/mroutelib/RouteProgrammerAsync.h"
#include "platform/mroutelib/RouteProgrammerTrace.h"
#include "platform/net/AddressFamily.h"

namespace MrouteLib {

Vex::Entity const* RouteProgrammer::ChipState::entity() const {
  return chip ? static_cast<Vex::Entity const*>(chip.get()) : async->chip.get();
}

Vex::Name const& RouteProgrammer::ChipState::name() const { return chip ? chip->name() : async->chip->name(); }

void RouteProgrammer::RouteRecord::chipsIs(std::size_t count) {
  if (count > 1) chipsMove(0, kNoSlot, new ChipRoute[count]);
}

void RouteProgrammer::RouteRecord::chipAdd(std::size_t count) {
  if (count > 0) chipsMove(count, kNoSlot, new ChipRoute[count + 1]);
}

void RouteProgrammer::RouteRecord::chipDel(std::size_t slot, std::size_t count) {
  if (count == 1) {
    firstChip = ChipRoute();
    return;
  }
  chipsMove(count, slot, count == 2 ? nullptr : new ChipRoute[count - 1]);
}

void RouteProgrammer::RouteRecord::chipsMove(std::size_t count, std::size_t skip, ChipRoute* to) noexcept {
  ChipRoute kept;
  ChipRoute* out = to;
  for (std::size_t slot = 0; slot < count; ++slot) {
    if (slot == skip) continue;
    (to ? *out++ : kept) = std::move(chip(slot));
  }
  chipsFree();
  chipsOnHeap = to != nullptr;
  if (to) {
    chips = to;
  } else {
    new (&firstChip) ChipRoute(std::move(kept));
  }
}

void RouteProgrammer::RouteRecord::chipsFree() noexcept {
  if (chipsOnHeap) {
    delete[] chips;
  } else {
    firstChip.~ChipRoute();
  }
}

RouteProgrammer::RouteProgrammer(Vex::Ptr<OifSetRegistry> registry, Vex::Ptr<HardwareStatus> v4Status,
                                 Vex::Ptr<HardwareStatus> v6Status)
    : registry_(std::move(registry)), v4Status_(std::move(v4Status)), v6Status_(std::move(v6Status)) {
  VEX_ASSERT(registry_);
}

RouteProgrammer::~RouteProgrammer() = default;

std::size_t RouteProgrammer::slotOf(Vex::Entity const* chip) const {
  for (std::size_t i = 0; i < chips_.size(); ++i) {
    if (chips_[i]->entity() == chip) return i;
  }
  return kNoSlot;
}

std::size_t RouteProgrammer::routesProgrammed() const { return chips_.empty() ? 0 : routes_.size() - routesUnsettled_; }

void RouteProgrammer::routeIs(DesiredRoute const& route) {
  BusyScope busy(*this);
  OifSetPtr oifSet = route.bridge() ? OifSetPtr() : registry_->oifSetIs(route.outputs());
  RouteId const id = routes_.idIs(route.vrfName(), route.key());
  auto [held, inserted] = routes_.try_emplace(id);
  RouteRecord& rec = *held;
  bool reAdd = false;
  if (!inserted) {
    reAdd = rec.bridge != route.bridge() || rec.acceptingVlan != route.acceptingVlan() ||
            rec.fastdrop != route.fastdrop() || rec.noRpf != route.noRpf() || rec.rpaId != route.rpaId();
    bool const reprogram = reAdd || rec.oifSet != oifSet;
    if (!reprogram) {
      if (rec.acceptingIntfId != route.acceptingIntfId()) {
        rec.acceptingIntfId = route.acceptingIntfId();
        writeStatus(id, rec);
      }
      return;
    }
  } else {
    rec.wanted = routesWanted_++;
    rec.chipsIs(chips_.size());
  }
  rec.oifSet = std::move(oifSet);
  rec.acceptingIntfId = route.acceptingIntfId();
  rec.acceptingVlan = route.acceptingVlan();
  rec.rpaId = route.rpaId();
  rec.bridge = route.bridge();
  rec.fastdrop = route.fastdrop();
  rec.noRpf = route.noRpf();
  // Whoever watches the status for routes (an asynchronous aging review,
  // when a handle appears) finds the new one, not programmed yet, before the
  // chips are asked.
  if (inserted) {
    if (auto* status = statusOf(id.key)) status->vrfStatusIs(*id.vrfName)->routeIs(id.key)->acceptingIntfIdIs(rec.acceptingIntfId);
  }
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) programOnChip(slot, id, rec, reAdd);
  writeStatus(id, rec);
}

void RouteProgrammer::routeDel(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) {
  auto const known = routes_.idOf(vrfName, key);
  if (!known) return;
  RouteRecord* held = routes_.find(*known);
  if (!held) return;
  BusyScope busy(*this);
  RouteId const& id = *known;
  RouteRecord& rec = *held;
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) routeDelOnChip(slot, id, rec);
  if (auto* status = statusOf(id.key)) {
    if (auto vrf = status->vrfStatus(*id.vrfName)) vrf->routeDel(id.key);
  }
  routes_.erase(id);
}

void RouteProgrammer::commit() {
  BusyScope busy(*this);
  for (auto const& cs : chips_) {
    if (!cs->chip) continue;
    ++programmingCalls_;
    cs->chip->doCommitRouteBatch();
  }
  for (auto const& cs : chips_) {
    if (cs->chip) runRetries(*cs);
  }
}

void RouteProgrammer::programOnChip(std::size_t slot, RouteId const& id, RouteRecord& rec, bool reAdd) {
  if (chips_[slot]->async) {
    programOnAsyncChip(slot, id, rec);
  } else {
    programOnSyncChip(slot, id, rec, reAdd);
  }
}

RouteProgrammer::RouteRecord const* RouteProgrammer::record(L3::VrfName const& vrfName,
                                                            Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  auto const id = routes_.idOf(vrfName, key);
  return id ? routes_.find(*id) : nullptr;
}

RouteHandle RouteProgrammer::routeHandle(Vex::Entity const* chip, L3::VrfName const& vrfName,
                                         Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  std::size_t const slot = slotOf(chip);
  auto const* rec = record(vrfName, key);
  return rec && slot != kNoSlot ? rec->chip(slot).handle : invalidRouteHandle;
}

OifSetPtr RouteProgrammer::oifSet(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  auto const* rec = record(vrfName, key);
  return rec ? rec->oifSet : OifSetPtr();
}

std::uint32_t RouteProgrammer::failureReason(Vex::Entity const* chip, L3::VrfName const& vrfName,
                                             Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  std::size_t const slot = slotOf(chip);
  auto const* rec = record(vrfName, key);
  return rec && slot != kNoSlot ? rec->chip(slot).failure : kFailureNone;
}

RouteProgrammer::Parked& RouteProgrammer::parkedOf(ChipState& cs, std::uint32_t failure) {
  return cs.async ? cs.async->parked : cs.parked[failure - 1];
}

void RouteProgrammer::settledCount(RouteRecord const& rec, bool before) {
  bool const now = unsettled(rec);
  if (now && !before) ++routesUnsettled_;
  if (!now && before) --routesUnsettled_;
}

void RouteProgrammer::chipFailureIs(std::size_t slot, RouteId const& id, RouteRecord& rec, std::uint32_t failure) {
  ChipRoute& cr = rec.chip(slot);
  if (cr.failure == failure) return;
  ChipState& cs = *chips_[slot];
  bool const before = unsettled(rec);
  if (cr.failure != kFailureNone) {
    parkedOf(cs, cr.failure).erase(rec.wanted);
    if (--rec.parkedChips == 0) --routesParked_;
  }
  cr.failure = failure;
  if (failure != kFailureNone) {
    parkedOf(cs, failure).emplace(rec.wanted, id);
    if (rec.parkedChips++ == 0) ++routesParked_;
    if (cs.async) asyncRetryArm(cs);
  }
  settledCount(rec, before);
}

RouteProgrammer::HardwareStatus* RouteProgrammer::statusOf(Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  return key.af() == Netcore::AddressFamily::ipv6 ? v6Status_.get() : v4Status_.get();
}

void RouteProgrammer::writeStatus(RouteId const& id, RouteRecord const& rec) {
  auto* status = statusOf(id.key);
  if (!status) return;
  std::uint32_t failure = kFailureNone;
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) {
    if (rec.chip(slot).failure != kFailureNone) {
      failure = rec.chip(slot).failure;
      break;
    }
  }
  auto route = status->vrfStatusIs(*id.vrfName)->routeIs(id.key);
  route->acceptingIntfIdIs(rec.acceptingIntfId);
  // The reason first, so that whoever watches programmed reads the reason that goes with it.
  route->failureReasonIs(failure);
  route->programmedIs(!chips_.empty() && !unsettled(rec));
}

}  // namespace MrouteLib
