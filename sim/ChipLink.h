#pragma once
// FalSim::ChipLink: the hook object one incarnation of the simulated agent
// hands the library. It passes every hook on to the reference chips while
// the agent is alive, and drops them once it has "died".
//
// Why a link instead of the reference chip itself: the chips must outlive an
// agent restart with their tables intact, while the dying agent's objects
// still run their cleanup (deleting routes, freeing sets) as they are
// destroyed. cut() models the process going away: from then on its calls
// reach no hardware and get neutral answers (no entry, no handle, not full,
// not hit), so the tables stay as the old agent left them and recovery can
// read them back.
//
// The link also plays the chip agent's part around counters: a counter the
// library creates is published in the top-level state machine's counter
// status (updateMfibCounter with value 0), and a deleted one is withdrawn,
// which is what a chip agent does through mrouteSm(). And it counts the
// aging review's hook calls for the report.
//
// The OIF-set cache hooks keep their base defaults, which the per-chip
// switch skips, as it would for the reference chip.
#include <cstdint>
#include <vector>

#include "model/MrouteSmHelper.h"
#include "sim/ReferenceChip.h"

namespace FalSim {

class ChipLink : public FalHelper::MrouteSmHelper {
 public:
  struct AgingCounts {
    std::uint64_t refreshes = 0;  // reviews started
    std::uint64_t clears = 0;     // reviews completed
    std::uint64_t reads = 0;      // hit bits read
    std::uint64_t hits = 0;       // reads that found the route (or fast-drop entry) hit
    AgingCounts& operator+=(AgingCounts const& o);
  };

  ChipLink(Vex::Name name, Vex::Ptr<ReferenceChip> chip);
  ~ChipLink() override;

  Vex::Ptr<ReferenceChip> const& chip() const { return chip_; }
  bool connected() const { return connected_; }
  // The agent has gone: nothing it still calls reaches the chips.
  void cut() { connected_ = false; }
  // Over every chip, and of one chip.
  AgingCounts agingCounts() const;
  AgingCounts agingCounts(std::uint32_t switchId) const;
  std::uint64_t counterReads() const { return counterReads_; }

  void mrouteInit(bool initializing) override;
  void handleMulticastRouting(bool enabled) override;
  void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
  void verifyMulticastRouting(bool enabled) override;
  void mrouteSwitchInit(std::uint32_t switchId, bool initializing) override;
  std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  std::uint32_t doReallocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
  void handleFreeMtableOifSet(std::uint32_t switchId, Vex::Ptr<Fal::MtableOifSet> const& oifSet) override;
  bool doCreateMrouteCounter(std::uint16_t vrfId, IpGenRouteKey const& key) override;
  void doDeleteMrouteCounter(IpGenRouteKey const& key) override;
  bool doClearMrouteCounter(IpGenRouteKey const& key) override;
  std::int64_t doReadMrouteCounter(IpGenRouteKey const& key) override;
  void ageOutHwMcastCounter(IpGenRouteKey const& key) override;
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
  bool mrouteHitBit(std::uint32_t switchId, std::uint16_t vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan,
                    bool fastdrop) override;
  bool mrouteHitBitCacheRefresh(std::uint32_t switchId) override;
  void mrouteHitBitCacheClear(std::uint32_t switchId) override;
  void verifyMroute(std::uint32_t switchId, std::uint16_t vrfId, Vex::Ptr<Fal::Route const> const& route) override;
  void verifyMrouteBoundary(std::uint32_t switchId, std::uint16_t vrfId,
                            Vex::Ptr<Fal::Boundary const> const& boundary) override;
  bool verifyZombieUsable(MrouteLib::PortVlanSet const& portVlanSet, std::uint32_t oifSetIndex) override;

 private:
  Vex::Ptr<ReferenceChip> chip_;
  AgingCounts& agingOf(std::uint32_t switchId);

  std::vector<AgingCounts> aging_;  // by switch
  std::uint64_t counterReads_ = 0;
  bool connected_ = true;
};

}  // namespace FalSim
