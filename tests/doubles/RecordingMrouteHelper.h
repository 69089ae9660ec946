#pragma once
// RecordingMrouteHelper: a hook object for tests that records every hook
// call as one line of text, in order, and answers from a small programmable
// model: sequential OIF-set indexes and route handles, settable table-full
// answers and hit bits, and a virtual-time charge per hardware call so that
// time-bounded passes can be tested.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "model/MrouteSmHelper.h"

namespace FalTest {

class RecordingMrouteHelper : public FalHelper::MrouteSmHelper {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

  explicit RecordingMrouteHelper(Vex::Name name = "recording") : MrouteSmHelper(std::move(name)) {}

  // Every call, e.g. "doAllocateMtableOifSet(1, 0)"; see the .cpp for each form.
  std::vector<std::string> calls;
  // Calls whose text starts with prefix.
  std::vector<std::string> callsTo(std::string const& prefix) const;
  void clear() {
    calls.clear();
    allocatedContents.clear();
  }

  // Programmable answers.
  bool routeTableFull = false;     // doAllocateMroute* fail and mrouteFull answers this
  bool boundaryTableFull = false;  // the same for boundary entries
  bool mtableFullAnswer = false;   // mtableFull answers this
  bool mtableAllocFails = false;   // doAllocateMtableOifSet returns 0xFFFFFFFF for new entries
  bool inPlaceAllocFails = false;  // ... and for in-place rewrites under a set's own index
  bool routeAllocFails = false;    // doAllocateMroute* fail whatever mrouteFull answers
  bool zombieUsable = true;        // verifyZombieUsable answers this
  std::set<std::string> hitRoutes;  // route keys (pretty form) whose hit bit reads true
  std::map<std::string, std::int64_t> counterReads;  // amounts doReadMrouteCounter returns per key
  Vex::Seconds costPerCall = 0;    // virtual time charged by each hardware call
  // The outputs handed to each doAllocateMtableOifSet call, in call order.
  std::vector<MrouteLib::PortVlanSet> allocatedContents;

  std::uint32_t nextOifSetIndex = 1;
  std::uint32_t nextRouteHandle = 100;

  void mrouteInit(bool initializing) override;
  void handleMulticastRouting(bool enabled) override;
  void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
  void verifyMulticastRouting(bool enabled) override;
  void mrouteSwitchInit(std::uint32_t switchId, bool initializing) override;
  std::uint32_t doAllocateMtableOifSet(std::uint32_t switchId, std::uint32_t oifSetIndex, OifSetPtr oifSet) override;
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
  void record(std::string line);
};

}  // namespace FalTest
