// The route programmer's synchronous chips: programming through
// MrouteLib::SwitchChip, and the retries their free flags and kick trigger.
#include "platform/mroutelib/RouteProgrammer.h"
#include "platform/mroutelib/RouteProgrammerAsync.h"
#include "platform/mroutelib/RouteProgrammerTrace.h"

namespace MrouteLib {

namespace {

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

// Here, where both kinds of chip state are complete.
RouteProgrammer::ChipState::ChipState() = default;
RouteProgrammer::ChipState::~ChipState() = default;

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
  ROUTE_PROGRAMMER_TRACE(2, "switchChipIs " << chip->name() << ", routes: " << routes_.size());
  routesInWantedOrder().forEach([&](RouteId const& id, RouteRecord& rec) {
    rec.chipAdd(slot);
    programOnChip(slot, id, rec, false);
    writeStatus(id, rec);
  });
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
  ROUTE_PROGRAMMER_TRACE(2, "switchChipDel " << chip->name());
  bool called = false;
  auto const ordered = routesInWantedOrder();
  ordered.forEach([&](RouteId const& id, RouteRecord& rec) {
    ChipRoute const& cr = rec.chip(slot);
    if (!cr.handle.isNull()) {
      ++programmingCalls_;
      chip->doDeleteRoute(cr.handle);
      called = true;
    }
    chipFailureIs(slot, id, rec, kFailureNone);
    rec.chipDel(slot, chips_.size());
  });
  if (called) {
    ++programmingCalls_;
    chip->doCommitRouteBatch();
  }
  chips_.erase(chips_.begin() + static_cast<std::ptrdiff_t>(slot));
  ordered.forEach([&](RouteId const& id, RouteRecord const& rec) { writeStatus(id, rec); });
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

void RouteProgrammer::programOnSyncChip(std::size_t slot, RouteId const& id, RouteRecord& rec, bool reAdd) {
  SwitchChip& chip = *chips_[slot]->chip;
  ChipRoute& cr = rec.chip(slot);
  if (!reAdd && !rec.bridge && !cr.handle.isNull() && cr.bound == rec.oifSet) {
    // Parked while its outputs were elsewhere; now they are back to those it
    // still replicates through (an entry the chip may have rewritten for
    // fast reroute meanwhile): nothing to program.
    ROUTE_PROGRAMMER_TRACE(5, "Route back on its bound outputs: " << *id.vrfName << ' ' << id.key
                                                                  << ", switch: " << chip.name());
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
      ROUTE_PROGRAMMER_TRACE(2, "Parking route, no oif set: " << *id.vrfName << ' ' << id.key
                                                              << ", switch: " << chip.name());
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
    ROUTE_PROGRAMMER_TRACE(2, "Parking route, no oif set: " << *id.vrfName << ' ' << id.key
                                                            << ", switch: " << chip.name());
    chipFailureIs(slot, id, rec, kFailureReplicationTableFull);
    return;
  }
  ++programmingCalls_;
  chip.doAllocateRoute(id.key, rec.acceptingVlan, rec.bridge, set, rec.fastdrop, rec.noRpf, rec.rpaId, *id.vrfName);
  RouteHandle const handle = chip.handleResult();
  if (handle.isNull()) {
    std::uint32_t failure = kFailureOther;
    if (rec.bridge && !chip.boundaryTcamFree()) failure = kFailureBoundaryTableFull;
    if (!rec.bridge && !chip.mrouteTcamFree()) failure = kFailureRouteTableFull;
    ROUTE_PROGRAMMER_TRACE(2, "Parking route, no handle: " << *id.vrfName << ' ' << id.key << ", switch: "
                                                           << chip.name() << ", failure: " << failure);
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
  Parked work;
  for (std::size_t i = 0; i < 4; ++i) {
    if (allowed[i]) work.insert(cs.parked[i].begin(), cs.parked[i].end());
  }
  if (work.empty()) return;
  std::size_t const slot = slotOf(&chip);
  ROUTE_PROGRAMMER_TRACE(5, "Retrying parked routes: " << work.size() << ", switch: " << chip.name());
  for (auto const& [wanted, id] : work) {
    RouteRecord* rec = routes_.find(id);
    if (!rec || rec->chip(slot).failure == kFailureNone) continue;
    ++retries_;
    programOnChip(slot, id, *rec, false);
    writeStatus(id, *rec);
  }
  ++programmingCalls_;
  chip.doCommitRouteBatch();
}

}  // namespace MrouteLib
