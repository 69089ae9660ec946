#pragma once
// RecordingAsyncMrouteHelper: an asynchronous hook object for tests. It
// records every hook call as one line of text, in order, and keeps a small
// model of the chip behind it:
// - groups: the multicast groups programmed (id -> outputs), with sequential
//   ids for sharable groups and the preset id for fixed ones;
// - routes: the routes programmed (handle -> the group they point at);
// - one transaction per group (made when the group is allocated or rewritten)
//   and per route (made when the route is bound), which the hooks hand out
//   and tests complete;
// - violations: what a chip would find wrong: a group deleted while a route
//   still points at it, a group deleted that is not programmed.
// Failures are programmable, and each call may charge virtual time so that
// time-bounded passes can be tested.
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "model/AsyncMrouteHelper.h"
#include "platform/mroutelib/PortVlanSet.h"

namespace FalTest {

class RecordingAsyncMrouteHelper : public FalHelper::AsyncMrouteHelper {
 public:
  using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;

  explicit RecordingAsyncMrouteHelper(Vex::Name name = "recordingAsync")
      : AsyncMrouteHelper(std::move(name), nullptr, nullptr) {}

  // Every call, e.g. "doDeleteOifSet(3)"; see the .cpp for each form.
  std::vector<std::string> calls;
  // Calls whose text starts with prefix.
  std::vector<std::string> callsTo(std::string const& prefix) const;
  // Only the calls that change the chip: groups and routes allocated,
  // rewritten, bound and deleted.
  std::vector<std::string> hardwareCalls() const;
  void clear() { calls.clear(); }

  // ---- the chip ----
  struct Route {
    std::uint32_t mcastId = kInvalidMcastId;  // the group it points at
  };
  std::map<std::uint32_t, MrouteLib::PortVlanSet> groups;
  std::map<std::uint32_t, std::uint32_t> groupDeletes;  // deletions per id, over the test
  std::map<MrouteLib::RouteHandle, Route> routes;
  std::vector<std::string> violations;
  // The transaction of a group or of a route's ingress entry (null when none).
  Vex::Ptr<Bolt::Xact> groupXact(std::uint32_t mcastId) const;
  Vex::Ptr<Bolt::Xact> ingressXact(MrouteLib::RouteHandle handle) const;

  // ---- programmable answers ----
  std::uint32_t nextMcastId = 1;
  std::uint32_t nextRouteHandle = 100;
  bool noFreeMcastId = false;     // group allocations return the invalid id
  bool routeAllocFails = false;   // doAllocateRoute returns the invalid handle
  std::set<RouteKeyType> fixedTypes;          // needFixedOifSet answers true for these
  std::set<RouteKeyType> noIngressTypes;      // needIngressProgramming answers false for these
  std::set<std::uint32_t> notReusable;        // mcastIdReusable answers false for these
  std::map<MrouteLib::RouteHandle, Vex::Seconds> lastAccessed;  // routeLastAccessedTime; 0 when absent
  Vex::Seconds minPollingInterval = 0;        // doGetAdjustedPollingInterval raises shorter intervals to this
  Vex::Seconds minActivityPollInterval = 0;   // doGetAdjustedActivityPollInterval likewise
  Vex::Seconds costPerCall = 0;               // virtual time charged by every call
  std::map<std::string, Vex::Seconds> costOf; // per call name, instead of costPerCall
  // Runs after each call is recorded, with the call's name: what the chip
  // agent's other work does meanwhile.
  std::function<void(std::string const& name)> onCall;

  // ---- the hooks ----
  void handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) override;
  void handleWildcardCounter(bool allCounter) override;
  std::uint32_t doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo, OifSetPtr oifSet,
                                                 XactPtr blockingXact, bool excludeEmptyMcid) override;
  std::uint32_t doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact, std::uint32_t mcastId) override;
  void doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId) override;
  XactPtr doGetXactForOifSet(std::uint32_t mcastId) override;
  std::uint32_t doGetXactFailureReason(XactPtr xact, FalHelper::MrouteXactType type) override;
  void doDeleteOifSet(std::uint32_t mcastId) override;
  MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                                         bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                         std::uint32_t vrfId, bool fastdrop) override;
  void doSetMtableOifSet(MrouteLib::RouteHandle routeHandle, std::uint32_t mcastId, XactPtr xact) override;
  XactPtr doGetXactForIngress(MrouteLib::RouteHandle routeHandle) override;
  void doDeleteRoute(MrouteLib::RouteHandle routeHandle) override;
  Vex::Seconds routeLastAccessedTime(MrouteLib::RouteHandle routeHandle) override;
  bool needFixedOifSet(RouteKeyType type) override;
  bool needIngressProgramming(RouteKeyType type) override;
  bool mcastIdReusable(std::uint32_t mcastId) override;
  bool mcastIdIsValid(std::uint32_t mcastId) override;
  Vex::Seconds doGetAdjustedPollingInterval(Vex::Seconds interval, Netcore::AddressFamily af) override;
  Vex::Seconds doGetAdjustedActivityPollInterval(Vex::Seconds interval, Netcore::AddressFamily af) override;
  void doScheduleVerify() override;

  // "[Ethernet1.100 Ethernet2.100]": the outputs of a set, as the lines show them.
  static std::string outputs(MrouteLib::PortVlanSet const& pvs);

 private:
  void record(char const* name, std::string line);
  std::uint32_t groupIs(std::uint32_t mcastId, OifSetPtr const& oifSet);

  std::map<std::uint32_t, Vex::Ptr<Bolt::Xact>> groupXact_;
  std::map<MrouteLib::RouteHandle, Vex::Ptr<Bolt::Xact>> ingressXact_;
};

}  // namespace FalTest
