#include "platform/mroutelib/RouteProgrammer.h"

#include <algorithm>

#include "platform/net/AddressFamily.h"
#include "platform/vex/Trace.h"

namespace MrouteLib {

namespace {

Vex::TraceHandle& trace() {
  static Vex::TraceHandle& h = Vex::traceHandle("MrouteLib");
  return h;
}

constexpr char const* kSource = "RouteProgrammer";

constexpr std::uint8_t retryBit(std::uint32_t failure) { return static_cast<std::uint8_t>(1U << (failure - 1)); }

}  // namespace

// Watches one chip's free flags and kick. Each handler only turns the change
// into a retry trigger for the programmer, which decides whether it can run now.
class RouteProgrammer::VexSwitchChip final : public SwitchChip::Notifiee {
 public:
  VexSwitchChip(RouteProgrammer* programmer, ChipState* state) : programmer_(programmer), state_(state) {}

  void onMtableFree() override {
    if (notifier()->mtableFree()) programmer_->retryTriggerIs(*state_, retryBit(kFailureReplicationTableFull));
  }
  void onMrouteTcamFree() override {
    if (notifier()->mrouteTcamFree()) programmer_->retryTriggerIs(*state_, retryBit(kFailureRouteTableFull));
  }
  void onBoundaryTcamFree() override {
    if (notifier()->boundaryTcamFree()) programmer_->retryTriggerIs(*state_, retryBit(kFailureBoundaryTableFull));
  }
  void onMrouteReviewKick() override { programmer_->retryTriggerIs(*state_, kRetryKick); }

 private:
  RouteProgrammer* programmer_;  // not owned: the programmer owns this reactor
  ChipState* state_;             // not owned: the chip's state owns this reactor
};

RouteProgrammer::RouteProgrammer(Vex::Ptr<OifSetRegistry> registry, Vex::Ptr<HardwareStatus> v4Status,
                                 Vex::Ptr<HardwareStatus> v6Status)
    : registry_(std::move(registry)), v4Status_(std::move(v4Status)), v6Status_(std::move(v6Status)) {
  VEX_ASSERT(registry_);
}

RouteProgrammer::~RouteProgrammer() = default;

std::size_t RouteProgrammer::slotOf(SwitchChip const* chip) const {
  for (std::size_t i = 0; i < chips_.size(); ++i) {
    if (chips_[i]->chip.get() == chip) return i;
  }
  return kNoSlot;
}

std::vector<RouteProgrammer::RouteMap::value_type*> RouteProgrammer::routesInWantedOrder() {
  std::vector<RouteMap::value_type*> out;
  out.reserve(routes_.size());
  for (auto& entry : routes_) out.push_back(&entry);
  std::sort(out.begin(), out.end(), [](auto const* a, auto const* b) { return a->second.wanted < b->second.wanted; });
  return out;
}

void RouteProgrammer::switchChipIs(Vex::Ptr<SwitchChip> chip) {
  if (!chip || slotOf(chip.get()) != kNoSlot) return;
  BusyScope busy(*this);
  auto state = std::make_unique<ChipState>();
  state->chip = chip;
  state->reactor = std::make_unique<VexSwitchChip>(this, state.get());
  state->reactor->notifierIs(chip);
  ChipState& cs = *state;
  chips_.push_back(std::move(state));
  std::size_t const slot = chips_.size() - 1;
  VEX_TRACE(trace(), 2, kSource, "switchChipIs " << chip->name() << ", routes: " << routes_.size());
  for (auto* route : routesInWantedOrder()) {
    auto& [id, rec] = *route;
    rec.chip.emplace_back();
    programOnChip(slot, id, rec, false);
    writeStatus(id, rec);
  }
  if (!routes_.empty()) {
    ++programmingCalls_;
    chip->doCommitRouteBatch();
  }
  runRetries(cs);
}

void RouteProgrammer::switchChipDel(Vex::Ptr<SwitchChip> const& chip) {
  std::size_t const slot = slotOf(chip.get());
  if (slot == kNoSlot) return;
  BusyScope busy(*this);
  // Nothing this chip says from here on matters.
  chips_[slot]->reactor->notifierIs(nullptr);
  VEX_TRACE(trace(), 2, kSource, "switchChipDel " << chip->name());
  bool called = false;
  auto const ordered = routesInWantedOrder();
  for (auto* route : ordered) {
    auto& [id, rec] = *route;
    ChipRoute const& cr = rec.chip[slot];
    if (!cr.handle.isNull()) {
      ++programmingCalls_;
      chip->doDeleteRoute(cr.handle);
      called = true;
    }
    if (cr.failure != kFailureNone && --rec.parkedChips == 0) --routesParked_;
    rec.chip.erase(rec.chip.begin() + static_cast<std::ptrdiff_t>(slot));
  }
  if (called) {
    ++programmingCalls_;
    chip->doCommitRouteBatch();
  }
  chips_.erase(chips_.begin() + static_cast<std::ptrdiff_t>(slot));
  for (auto const* route : ordered) writeStatus(route->first, route->second);
}

void RouteProgrammer::routeIs(DesiredRoute const& route) {
  BusyScope busy(*this);
  OifSetPtr oifSet = route.bridge() ? OifSetPtr() : registry_->oifSetIs(route.outputs());
  auto [it, inserted] = routes_.try_emplace(RouteId{route.vrfName(), route.key()});
  RouteId const& id = it->first;
  RouteRecord& rec = it->second;
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
    rec.chip.resize(chips_.size());
  }
  rec.oifSet = std::move(oifSet);
  rec.acceptingIntfId = route.acceptingIntfId();
  rec.acceptingVlan = route.acceptingVlan();
  rec.rpaId = route.rpaId();
  rec.bridge = route.bridge();
  rec.fastdrop = route.fastdrop();
  rec.noRpf = route.noRpf();
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) programOnChip(slot, id, rec, reAdd);
  writeStatus(id, rec);
}

void RouteProgrammer::routeDel(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) {
  auto it = routes_.find(RouteId{vrfName, key});
  if (it == routes_.end()) return;
  BusyScope busy(*this);
  RouteId const& id = it->first;
  RouteRecord& rec = it->second;
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) {
    ChipRoute& cr = rec.chip[slot];
    if (!cr.handle.isNull()) {
      ++programmingCalls_;
      chips_[slot]->chip->doDeleteRoute(std::exchange(cr.handle, invalidRouteHandle));
    }
    chipFailureIs(slot, id, rec, kFailureNone);
  }
  if (auto* status = statusOf(id.key)) {
    if (auto vrf = status->vrfStatus(id.vrfName)) vrf->routeDel(id.key);
  }
  routes_.erase(it);
}

void RouteProgrammer::commit() {
  BusyScope busy(*this);
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) {
    ++programmingCalls_;
    chips_[slot]->chip->doCommitRouteBatch();
  }
  for (std::size_t slot = 0; slot < chips_.size(); ++slot) runRetries(*chips_[slot]);
}

RouteProgrammer::RouteRecord const* RouteProgrammer::record(L3::VrfName const& vrfName,
                                                            Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  auto it = routes_.find(RouteId{vrfName, key});
  return it == routes_.end() ? nullptr : &it->second;
}

RouteHandle RouteProgrammer::routeHandle(SwitchChip const* chip, L3::VrfName const& vrfName,
                                         Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  std::size_t const slot = slotOf(chip);
  auto const* rec = record(vrfName, key);
  return rec && slot != kNoSlot ? rec->chip[slot].handle : invalidRouteHandle;
}

OifSetPtr RouteProgrammer::oifSet(L3::VrfName const& vrfName, Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  auto const* rec = record(vrfName, key);
  return rec ? rec->oifSet : OifSetPtr();
}

std::uint32_t RouteProgrammer::failureReason(SwitchChip const* chip, L3::VrfName const& vrfName,
                                             Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  std::size_t const slot = slotOf(chip);
  auto const* rec = record(vrfName, key);
  return rec && slot != kNoSlot ? rec->chip[slot].failure : kFailureNone;
}

Vex::Ptr<MtableOifSet> RouteProgrammer::allocateMtableOifSet(SwitchChip& chip, OifSetPtr const& oifSet) {
  ++programmingCalls_;
  chip.doAllocateMtableOifSet(oifSet);
  Vex::Ptr<MtableOifSet> set = chip.oifSetResult();
  // The result attribute would otherwise keep the set alive after its last
  // route has gone, and the chip could never zombie or free it.
  chip.oifSetResultIs(nullptr);
  return set;
}

void RouteProgrammer::programOnChip(std::size_t slot, RouteId const& id, RouteRecord& rec, bool reAdd) {
  SwitchChip& chip = *chips_[slot]->chip;
  ChipRoute& cr = rec.chip[slot];
  if (!reAdd && !rec.bridge && !cr.handle.isNull() && cr.bound == rec.oifSet) {
    // Parked while its outputs were elsewhere; now they are back to those it
    // still replicates through (an entry the chip may have rewritten for
    // fast reroute meanwhile): nothing to program.
    VEX_TRACE(trace(), 5, kSource,
              "Route back on its bound outputs: " << id.vrfName << ' ' << id.key << ", switch: " << chip.name());
    chipFailureIs(slot, id, rec, kFailureNone);
    return;
  }
  // Allocated before a re-added route is deleted, so that the route's own
  // set is shared rather than freed and allocated again.
  Vex::Ptr<MtableOifSet> set;
  if (!rec.bridge) set = allocateMtableOifSet(chip, rec.oifSet);

  if (!cr.handle.isNull() && !reAdd) {
    if (rec.bridge) {
      chipFailureIs(slot, id, rec, kFailureNone);
      return;
    }
    if (!set) {
      // Keeps replicating to its old set until the new one fits.
      VEX_TRACE(trace(), 2, kSource,
                "Parking route, no oif set: " << id.vrfName << ' ' << id.key << ", switch: " << chip.name());
      chipFailureIs(slot, id, rec, kFailureReplicationTableFull);
      return;
    }
    ++programmingCalls_;
    chip.doSetMtableOifSet(cr.handle, set);
    cr.bound = rec.oifSet;
    chipFailureIs(slot, id, rec, kFailureNone);
    return;
  }

  if (!cr.handle.isNull()) {
    ++programmingCalls_;
    chip.doDeleteRoute(std::exchange(cr.handle, invalidRouteHandle));
    cr.bound = nullptr;
  }
  if (!rec.bridge && !set) {
    VEX_TRACE(trace(), 2, kSource,
              "Parking route, no oif set: " << id.vrfName << ' ' << id.key << ", switch: " << chip.name());
    chipFailureIs(slot, id, rec, kFailureReplicationTableFull);
    return;
  }
  ++programmingCalls_;
  chip.doAllocateRoute(id.key, rec.acceptingVlan, rec.bridge, set, rec.fastdrop, rec.noRpf, rec.rpaId, id.vrfName);
  RouteHandle const handle = chip.handleResult();
  if (handle.isNull()) {
    std::uint8_t failure = kFailureOther;
    if (rec.bridge && !chip.boundaryTcamFree()) failure = kFailureBoundaryTableFull;
    if (!rec.bridge && !chip.mrouteTcamFree()) failure = kFailureRouteTableFull;
    VEX_TRACE(trace(), 2, kSource,
              "Parking route, no handle: " << id.vrfName << ' ' << id.key << ", switch: " << chip.name()
                                           << ", failure: " << int{failure});
    chipFailureIs(slot, id, rec, failure);
    return;
  }
  cr.handle = handle;
  if (set) {
    ++programmingCalls_;
    chip.doSetMtableOifSet(handle, set);
    cr.bound = rec.oifSet;
  }
  chipFailureIs(slot, id, rec, kFailureNone);
}

void RouteProgrammer::chipFailureIs(std::size_t slot, RouteId const& id, RouteRecord& rec, std::uint8_t failure) {
  ChipRoute& cr = rec.chip[slot];
  if (cr.failure == failure) return;
  ChipState& cs = *chips_[slot];
  if (cr.failure != kFailureNone) {
    cs.parked[cr.failure - 1].erase(rec.wanted);
    if (--rec.parkedChips == 0) --routesParked_;
  }
  cr.failure = failure;
  if (failure != kFailureNone) {
    cs.parked[failure - 1].emplace(rec.wanted, id);
    if (rec.parkedChips++ == 0) ++routesParked_;
  }
}

RouteProgrammer::HardwareStatus* RouteProgrammer::statusOf(Routing::Multicast::Fib::IpGenRouteKey const& key) const {
  return key.af() == Netcore::AddressFamily::ipv6 ? v6Status_.get() : v4Status_.get();
}

void RouteProgrammer::writeStatus(RouteId const& id, RouteRecord const& rec) {
  auto* status = statusOf(id.key);
  if (!status) return;
  std::uint32_t failure = kFailureNone;
  for (auto const& cr : rec.chip) {
    if (cr.failure != kFailureNone) {
      failure = cr.failure;
      break;
    }
  }
  auto route = status->vrfStatusIs(id.vrfName)->routeIs(id.key);
  route->acceptingIntfIdIs(rec.acceptingIntfId);
  // The reason first, so that whoever watches programmed reads the reason that goes with it.
  route->failureReasonIs(failure);
  route->programmedIs(!chips_.empty() && rec.parkedChips == 0);
}

void RouteProgrammer::retryTriggerIs(ChipState& cs, std::uint8_t bits) {
  cs.pendingRetry |= bits;
  if (!busy_) runRetries(cs);
}

void RouteProgrammer::runRetries(ChipState& cs) {
  BusyScope busy(*this);
  // The first pass serves the triggers at hand; further ones serve what
  // the passes themselves triggered. What is left waits for the next
  // trigger or commit.
  for (int round = 0; round <= kMaxRetryRounds && cs.pendingRetry != 0; ++round) {
    retryPass(cs, std::exchange(cs.pendingRetry, std::uint8_t{0}));
  }
}

void RouteProgrammer::retryPass(ChipState& cs, std::uint8_t bits) {
  SwitchChip& chip = *cs.chip;
  bool const kick = (bits & kRetryKick) != 0;
  bool const allowed[4] = {
      kick || ((bits & retryBit(kFailureReplicationTableFull)) && chip.mtableFree()),
      kick || ((bits & retryBit(kFailureRouteTableFull)) && chip.mrouteTcamFree()),
      kick || ((bits & retryBit(kFailureBoundaryTableFull)) && chip.boundaryTcamFree()),
      kick,
  };
  // A snapshot, in the order the routes were wanted whatever their failure:
  // routes parked again by this pass wait for the next trigger.
  absl::btree_map<std::uint64_t, RouteId> work;
  for (std::size_t i = 0; i < 4; ++i) {
    if (allowed[i]) work.insert(cs.parked[i].begin(), cs.parked[i].end());
  }
  if (work.empty()) return;
  std::size_t const slot = slotOf(&chip);
  VEX_TRACE(trace(), 5, kSource, "Retrying parked routes: " << work.size() << ", switch: " << chip.name());
  for (auto const& [wanted, id] : work) {
    auto it = routes_.find(id);
    if (it == routes_.end() || it->second.chip[slot].failure == kFailureNone) continue;
    ++retries_;
    programOnChip(slot, it->first, it->second, false);
    writeStatus(it->first, it->second);
  }
  ++programmingCalls_;
  chip.doCommitRouteBatch();
}

}  // namespace MrouteLib
