#pragma once
// ToySyncAgent: the synchronous hooks of a chip agent, over one ToyTable.
//
// The library calls these hooks from its state machines and expects each
// to have done its hardware work when it returns. The agent overrides every
// required hook (the base stops the process with "This function must be
// implemented by derived class" for one it did not) and, of the optional
// ones, only doCommitMrouteBatch: the per-chip switch skips the others while
// they keep the base's default.
//
// One chip: switchId 0. A real agent keeps a table per chip and picks it by
// switchId.
#include <cstdint>

#include "ToyTable.h"
#include "model/MrouteSmHelper.h"

namespace ToyChip {

class ToySyncAgent final : public FalHelper::MrouteSmHelper {
 public:
  // The entry every set without outputs shares: the library asks for one
  // without asking whether the table is full, and must get it.
  static constexpr std::uint32_t kNowhereEntry = 0xFFFFFFFD;

  ToySyncAgent(std::size_t routeCapacity, std::size_t entryCapacity);

  ToyTable const& table() const { return table_; }
  bool routingEnabled() const { return routingEnabled_; }
  bool initialized() const { return initialized_; }
  std::uint32_t commits() const { return commits_; }

  void mrouteInit(bool initializing) override;
  void handleMulticastRouting(bool enabled) override;
  void verifyMulticastRouting(bool enabled) override;
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
  void doCommitMrouteBatch() override { ++commits_; }
  bool mrouteFull(std::uint32_t switchId) override { return table_.routesFull(); }
  bool mrouteBoundaryFull(std::uint32_t switchId) override { return table_.routesFull(); }
  bool mtableFull(std::uint32_t switchId) override { return table_.entriesFull(); }
  // The toy carries no traffic: nothing is ever hit.
  bool mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                    bool fastdrop) override {
    return false;
  }
  void verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) override;
  void verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                            Vex::Ptr<Fal::Boundary const> const& boundary) override;

 private:
  MrouteLib::RouteHandle routeAdd(ToyTable::Route route);

  ToyTable table_;
  bool initialized_ = false;
  bool routingEnabled_ = false;
  std::uint32_t commits_ = 0;
};

}  // namespace ToyChip
