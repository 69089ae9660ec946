#include "sim/KernelChipLink.h"

#include "sync/Boundary.h"
#include "sync/MtableOifSet.h"
#include "sync/Route.h"

namespace FalSim {

using MrouteLib::RouteHandle;

namespace {

constexpr std::uint32_t kInvalidIndex = ReferenceChip::kInvalidIndex;

// A record naming an entry, for freeing it on a chip that has no set of the
// library's for it.
Vex::Ptr<Fal::MtableOifSet> standIn(std::uint32_t index) {
  auto set = Fal::mtableOifSetFactory(nullptr, false, nullptr);
  set->oifSetIndexIs(index);
  return set;
}

}  // namespace

KernelChipLink::KernelChipLink(Vex::Name name, Vex::Ptr<ReferenceChip> chip, KernelBacking& backing)
    : ChipLink(std::move(name), std::move(chip)), backing_(backing) {}

KernelChipLink::~KernelChipLink() = default;

KernelBacking::Chip* KernelChipLink::kernel(std::uint32_t switchId) {
  return connected() ? backing_.chip(switchId) : nullptr;
}

void KernelChipLink::mrouteSwitchInit(std::uint32_t switchId, bool initializing) {
  ChipLink::mrouteSwitchInit(switchId, initializing);
  if (auto* k = kernel(switchId)) k->chip->mrouteSwitchInit(switchId, initializing);
}

std::uint32_t KernelChipLink::writeEntry(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr const& oifSet,
                                         bool reallocate) {
  auto* k = kernel(switchId);
  std::uint32_t const ref = reallocate ? ChipLink::doReallocateMtableOifSet(switchId, oifSetIndex, oifSet)
                                       : ChipLink::doAllocateMtableOifSet(switchId, oifSetIndex, oifSet);
  if (!k || ref == kInvalidIndex) return ref;
  bool const fresh = oifSetIndex == 0 || oifSetIndex == ReferenceChip::kFreshIndex;
  if (!fresh) {
    // A rewrite in place of an entry both chips hold.
    auto it = k->index.find(oifSetIndex);
    if (it == k->index.end()) return ref;
    return k->chip->doAllocateMtableOifSet(switchId, it->second, oifSet) == kInvalidIndex ? kInvalidIndex : ref;
  }
  std::uint32_t const mine = k->chip->doAllocateMtableOifSet(switchId, oifSetIndex, oifSet);
  if (mine == kInvalidIndex) {
    ChipLink::handleFreeMtableOifSet(switchId, standIn(ref));
    ++backing_.figures().kernelRefusals;
    return kInvalidIndex;
  }
  k->index[ref] = mine;
  return ref;
}

std::uint32_t KernelChipLink::doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) {
  return writeEntry(switchId, oifSetIndex, oifSet, false);
}

std::uint32_t KernelChipLink::doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex,
                                                       OifSetPtr oifSet) {
  return writeEntry(switchId, oifSetIndex, oifSet, true);
}

void KernelChipLink::handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) {
  ChipLink::handleFreeMtableOifSet(switchId, oifSet);
  auto* k = kernel(switchId);
  if (!k || !oifSet) return;
  auto it = k->index.find(oifSet->oifSetIndex());
  if (it == k->index.end()) return;
  k->chip->handleFreeMtableOifSet(switchId, standIn(it->second));
  k->index.erase(it);
}

RouteHandle KernelChipLink::mirrorRoute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle, bool bridge,
                                        RouteHandle kernelHandle) {
  if (handle.isNull()) return handle;
  auto* k = kernel(switchId);
  if (!k) return handle;
  if (kernelHandle.isNull()) {
    if (bridge) {
      ChipLink::doDeleteMrouteBoundary(switchId, vrfId, handle, nullptr);
    } else {
      ChipLink::doDeleteMroute(switchId, vrfId, handle, nullptr);
    }
    ++backing_.figures().kernelRefusals;
    return RouteHandle::invalid();
  }
  k->handle[handle.value()] = kernelHandle;
  return handle;
}

RouteHandle KernelChipLink::doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                             Bridging::VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                                             bool fastdrop, std::uint16_t rpaId) {
  RouteHandle const ref =
      ChipLink::doAllocateMroute(switchId, vrfId, key, acceptingVlanId, bridge, oifSetIndex, fastdrop, rpaId);
  auto* k = kernel(switchId);
  if (!k || ref.isNull()) return ref;
  auto const index = k->index.find(oifSetIndex);
  std::uint32_t const mine = index == k->index.end() ? 0 : index->second;
  return mirrorRoute(switchId, vrfId, ref, bridge,
                     k->chip->doAllocateMroute(switchId, vrfId, key, acceptingVlanId, bridge, mine, fastdrop, rpaId));
}

RouteHandle KernelChipLink::doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                                  bool bridge, std::uint32_t oifSetIndex, bool fastdrop,
                                                  std::uint16_t rpaId) {
  RouteHandle const ref = ChipLink::doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, oifSetIndex, fastdrop, rpaId);
  auto* k = kernel(switchId);
  if (!k || ref.isNull()) return ref;
  auto const index = k->index.find(oifSetIndex);
  std::uint32_t const mine = index == k->index.end() ? 0 : index->second;
  return mirrorRoute(switchId, vrfId, ref, bridge,
                     k->chip->doAllocateMrouteNoRpf(switchId, vrfId, key, bridge, mine, fastdrop, rpaId));
}

void KernelChipLink::doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                       Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) {
  ChipLink::doSetMtableOifSet(switchId, vrfId, handle, route, oifSetIndex);
  auto* k = kernel(switchId);
  if (!k) return;
  auto h = k->handle.find(handle.value());
  auto index = k->index.find(oifSetIndex);
  if (h == k->handle.end() || (oifSetIndex != 0 && index == k->index.end())) return;
  k->chip->doSetMtableOifSet(switchId, vrfId, h->second, route, oifSetIndex == 0 ? 0 : index->second);
}

void KernelChipLink::deleteRoute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle, bool boundary) {
  auto* k = kernel(switchId);
  if (!k) return;
  auto h = k->handle.find(handle.value());
  if (h == k->handle.end()) return;
  if (boundary) {
    k->chip->doDeleteMrouteBoundary(switchId, vrfId, h->second, nullptr);
  } else {
    k->chip->doDeleteMroute(switchId, vrfId, h->second, nullptr);
  }
  k->handle.erase(h);
}

void KernelChipLink::doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                    Vex::Ptr<Fal::Route const> const& route) {
  ChipLink::doDeleteMroute(switchId, vrfId, handle, route);
  deleteRoute(switchId, vrfId, handle, false);
}

void KernelChipLink::doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, RouteHandle handle,
                                            Vex::Ptr<Fal::Boundary const> const& boundary) {
  ChipLink::doDeleteMrouteBoundary(switchId, vrfId, handle, boundary);
  deleteRoute(switchId, vrfId, handle, true);
}

void KernelChipLink::doCommitMrouteBatch() {
  ChipLink::doCommitMrouteBatch();
  if (!connected()) return;
  for (std::uint32_t c = 0; c < backing_.chips(); ++c) {
    if (auto* k = backing_.chip(c)) k->chip->doCommitMrouteBatch();
  }
}

bool KernelChipLink::mrouteFull(std::uint32_t switchId) {
  auto* k = kernel(switchId);
  return ChipLink::mrouteFull(switchId) || (k && k->chip->mrouteFull(switchId));
}

bool KernelChipLink::mrouteBoundaryFull(std::uint32_t switchId) {
  auto* k = kernel(switchId);
  return ChipLink::mrouteBoundaryFull(switchId) || (k && k->chip->mrouteBoundaryFull(switchId));
}

bool KernelChipLink::mtableFull(std::uint32_t switchId) {
  auto* k = kernel(switchId);
  return ChipLink::mtableFull(switchId) || (k && k->chip->mtableFull(switchId));
}

}  // namespace FalSim
