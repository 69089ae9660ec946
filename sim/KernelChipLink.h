#pragma once
// FalSim::KernelChipLink: the hook object of an agent incarnation whose chips
// are backed by the kernel. Every hook reaches the reference chips as through
// ChipLink, and each one that programs or asks about a kernel-backed chip
// reaches that chip's FalKernel::KernelChip too, with the kernel chip's own
// index or handle in place of the reference chip's.
//
// The kernel has the last word on room: an entry or route the reference chip
// took but the kernel refused is taken back from the reference chip and
// refused to the library (a full table for an entry), so the library, the
// reference chip and the kernel always hold the same routes. The
// full-table queries answer full when either chip is. Hit bits, counters and
// verification answer from the reference chip, whose traffic model the
// report's figures come from; the real packets are KernelBacking's.
#include "sim/ChipLink.h"
#include "sim/KernelBacking.h"

namespace FalSim {

class KernelChipLink final : public ChipLink {
 public:
  // backing: not owned, outlives the link.
  KernelChipLink(Vex::Name name, Vex::Ptr<ReferenceChip> chip, KernelBacking& backing);
  ~KernelChipLink() override;

  void mrouteSwitchInit(std::uint32_t switchId, bool initializing) override;
  std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  std::uint32_t doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  void handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) override;
  MrouteLib::RouteHandle doAllocateMroute(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                          Bridging::VlanIdOrNone acceptingVlanId, bool bridge, std::uint32_t oifSetIndex,
                                          bool fastdrop, std::uint16_t rpaId) override;
  MrouteLib::RouteHandle doAllocateMrouteNoRpf(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key,
                                               bool bridge, std::uint32_t oifSetIndex, bool fastdrop,
                                               std::uint16_t rpaId) override;
  void doSetMtableOifSet(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                         Vex::Ptr<Fal::Route const> const& route, std::uint32_t oifSetIndex) override;
  void doDeleteMroute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                      Vex::Ptr<Fal::Route const> const& route) override;
  void doDeleteMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                              Vex::Ptr<Fal::Boundary const> const& boundary) override;
  void doCommitMrouteBatch() override;
  bool mrouteFull(std::uint32_t switchId) override;
  bool mrouteBoundaryFull(std::uint32_t switchId) override;
  bool mtableFull(std::uint32_t switchId) override;

 private:
  // The kernel chip of switchId while the agent is connected, else null.
  KernelBacking::Chip* kernel(std::uint32_t switchId);
  std::uint32_t writeEntry(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr const& oifSet, bool reallocate);
  MrouteLib::RouteHandle mirrorRoute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle,
                                     bool bridge, MrouteLib::RouteHandle kernelHandle);
  void deleteRoute(std::uint32_t switchId, std::uint16_t vrfId, MrouteLib::RouteHandle handle, bool boundary);

  KernelBacking& backing_;
};

}  // namespace FalSim
