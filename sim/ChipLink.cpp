#include "sim/ChipLink.h"

#include "sync/MrouteSm.h"

namespace FalSim {

using MrouteLib::RouteHandle;

ChipLink::ChipLink(Vex::Name name, Vex::Ptr<ReferenceChip> chip) : MrouteSmHelper(std::move(name)), chip_(std::move(chip)) {}

ChipLink::~ChipLink() = default;

ChipLink::AgingCounts& ChipLink::AgingCounts::operator+=(AgingCounts const& o) {
  refreshes += o.refreshes;
  clears += o.clears;
  reads += o.reads;
  hits += o.hits;
  return *this;
}

ChipLink::AgingCounts ChipLink::agingCounts() const {
  AgingCounts total;
  for (auto const& a : aging_) total += a;
  return total;
}

ChipLink::AgingCounts ChipLink::agingCounts(std::uint32_t switchId) const {
  return switchId < aging_.size() ? aging_[switchId] : AgingCounts{};
}

ChipLink::AgingCounts& ChipLink::agingOf(std::uint32_t switchId) {
  if (switchId >= aging_.size()) aging_.resize(switchId + 1);
  return aging_[switchId];
}

void ChipLink::mrouteInit(bool initializing) {
  if (connected_) chip_->mrouteInit(initializing);
}

void ChipLink::handleMulticastRouting(bool enabled) {
  if (connected_) chip_->handleMulticastRouting(enabled);
}

void ChipLink::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) {
  if (connected_) chip_->handleMrouteCounterMode(mode);
}

void ChipLink::verifyMulticastRouting(bool enabled) {
  if (connected_) chip_->verifyMulticastRouting(enabled);
}

void ChipLink::mrouteSwitchInit(std::uint32_t switchId, bool initializing) {
  if (connected_) chip_->mrouteSwitchInit(switchId, initializing);
}

std::uint32_t ChipLink::doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return connected_ ? chip_->doAllocateMtableOifSet(switchId, oifSetIndex, std::move(oifSet)) : ReferenceChip::kInvalidIndex;
}

std::uint32_t ChipLink::doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return connected_ ? chip_->doReallocateMtableOifSet(switchId, oifSetIndex, std::move(oifSet)) : ReferenceChip::kInvalidIndex;
}

void ChipLink::handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) {
  if (connected_) chip_->handleFreeMtableOifSet(switchId, oifSet);
}

bool ChipLink::doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) {
  if (!connected_) return false;
  bool const created = chip_->doCreateMrouteCounter(vrfId, key);
  // Published with nothing counted yet; polling adds what the chip counts.
  if (created) {
    if (auto sm = mrouteSm()) sm->updateMfibCounter(key, 0, true);
  }
  return created;
}

void ChipLink::doDeleteMrouteCounter(IpGenRouteKey const& key) {
  if (!connected_) return;
  chip_->doDeleteMrouteCounter(key);
  if (auto sm = mrouteSm()) sm->removeMfibCounter(key);
}

bool ChipLink::doClearMrouteCounter(IpGenRouteKey const& key) { return connected_ && chip_->doClearMrouteCounter(key); }

std::int64_t ChipLink::doReadMrouteCounter(IpGenRouteKey const& key) {
  if (!connected_) return 0;
  ++counterReads_;
  return chip_->doReadMrouteCounter(key);
}

void ChipLink::ageOutHwMcastCounter(IpGenRouteKey const& key) {
  if (connected_) chip_->ageOutHwMcastCounter(key);
}

RouteHandle ChipLink::doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                       Bridging::VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                                       bool fastdrop, std::uint16_t rpaId) {
  if (!connected_) return RouteHandle::invalid();
  return chip_->doAllocateMroute(switchId, vrfId, key, acceptingVlanId, bridge, oifSetIndex, fastdrop, rpaId);
}

RouteHandle ChipLink::doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                            bool bridge, std::uint32_t oifSetIndex, bool fastdrop, std::uint16_t rpaId) {
  if (!connected_) return RouteHandle::invalid();
  return chip_->doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, oifSetIndex, fastdrop, rpaId);
}

void ChipLink::doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                 Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) {
  if (connected_) chip_->doSetMtableOifSet(switchId, vrfId, handle, route, oifSetIndex);
}

void ChipLink::doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                              Vex::Ptr<Fal::Route const> const& route) {
  if (connected_) chip_->doDeleteMroute(switchId, vrfId, handle, route);
}

void ChipLink::doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                      Vex::Ptr<Fal::Boundary const> const& boundary) {
  if (connected_) chip_->doDeleteMrouteBoundary(switchId, vrfId, handle, boundary);
}

void ChipLink::doCommitMrouteBatch() {
  if (connected_) chip_->doCommitMrouteBatch();
}

bool ChipLink::mrouteFull(std::uint32_t switchId) { return connected_ && chip_->mrouteFull(switchId); }

bool ChipLink::mrouteBoundaryFull(std::uint32_t switchId) { return connected_ && chip_->mrouteBoundaryFull(switchId); }

bool ChipLink::mtableFull(std::uint32_t switchId) { return connected_ && chip_->mtableFull(switchId); }

bool ChipLink::mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                            Bridging::VlanIdOrNone vlan, bool fastdrop) {
  if (!connected_) return false;
  AgingCounts& aging = agingOf(switchId);
  ++aging.reads;
  bool const hit = chip_->mrouteHitBit(switchId, vrfId, key, vlan, fastdrop);
  if (hit) ++aging.hits;
  return hit;
}

bool ChipLink::mrouteHitBitCacheRefresh(std::uint32_t switchId) {
  if (!connected_) return false;
  ++agingOf(switchId).refreshes;
  return chip_->mrouteHitBitCacheRefresh(switchId);
}

void ChipLink::mrouteHitBitCacheClear(std::uint32_t switchId) {
  if (!connected_) return;
  ++agingOf(switchId).clears;
  chip_->mrouteHitBitCacheClear(switchId);
}

void ChipLink::verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) {
  if (connected_) chip_->verifyMroute(switchId, vrfId, route);
}

void ChipLink::verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                                    Vex::Ptr<Fal::Boundary const> const& boundary) {
  if (connected_) chip_->verifyMrouteBoundary(switchId, vrfId, boundary);
}

bool ChipLink::verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) {
  return connected_ && chip_->verifyZombieUsable(portVlanSet, oifSetIndex);
}

}  // namespace FalSim
