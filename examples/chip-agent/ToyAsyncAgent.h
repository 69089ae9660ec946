#pragma once
// ToyAsyncAgent: the asynchronous hooks of a chip agent, over one ToyTable.
//
// Every hardware change is a transaction: the hook writes the change and
// hands back (or keeps, for the library to ask for) a Bolt::Xact, which
// the chip acknowledges later. Here the toy's "hardware" acknowledges each
// write `latency` seconds after it was made, in the order they were made,
// on the event loop (a Vex::Clock): as a chip whose SDK queues writes and
// calls back. A bind (doSetMtableOifSet) waits for the transaction of its
// group and fails with the group's reason when that one failed.
//
// The agent overrides hooks 6 to 16 (the base stops the process for any of
// them it did not) and doScheduleVerify, which it only counts; the others
// keep the base's defaults (sharable groups, ingress programming for every
// key type, every valid id reusable).
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "ToyTable.h"
#include "model/AsyncMrouteHelper.h"
#include "platform/vex/Clock.h"
#include "platform/vex/Trace.h"

namespace ToyChip {

class ToyAsyncAgent final : public FalHelper::AsyncMrouteHelper {
 public:
  // The failure code of a bind the chip rejected. The codes are the
  // agent's own, from the route-status codes of its platform; the library
  // only passes them on into the route's status.
  static constexpr std::uint32_t kReasonBindRejected = 0x20;

  ToyAsyncAgent(std::size_t routeCapacity, std::size_t groupCapacity, Vex::Seconds latency,
                Vex::Ptr<FlexCounters::CounterKeyTable> counterKeyTable,
                Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> counterKeyMap);
  ~ToyAsyncAgent() override;

  ToyTable const& table() const { return table_; }
  // The next `count` binds are rejected by the chip.
  void rejectBinds(int count) { rejectBinds_ = count; }
  // Writes not yet acknowledged.
  std::size_t outstanding() const { return queue_.size(); }
  std::uint64_t verifyRequests() const { return verifyRequests_; }

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
  // The toy carries no traffic: no route was ever hit.
  Vex::Seconds routeLastAccessedTime(MrouteLib::RouteHandle routeHandle) override { return 0.0; }
  void doScheduleVerify() override { ++verifyRequests_; }

 private:
  class Acknowledger;
  struct Write {
    Vex::Ptr<Bolt::Xact> xact = nullptr;
    Vex::Seconds due = 0.0;
    XactPtr after = nullptr;            // the transaction this write waits for, or null
    std::uint32_t rejectWith = 0;       // the chip refuses the write with this reason
    std::function<void()> apply = {};  // what the write changes, once acknowledged
  };

  // Starts the transaction of a write made now.
  Vex::Ptr<Bolt::Xact> started(Write write, std::string description);
  // Acknowledges the writes that are due.
  void acknowledge();

  ToyTable table_;
  Vex::Seconds latency_;
  Vex::TraceHandle& trace_;
  std::deque<Write> queue_;
  // The last transaction of each group and of each route's ingress entry.
  std::map<std::uint32_t, XactPtr> groupXact_;
  std::map<std::uint32_t, XactPtr> ingressXact_;
  Vex::Ptr<Vex::Clock> clock_;
  std::unique_ptr<Acknowledger> acknowledger_;
  int rejectBinds_ = 0;
  std::uint64_t verifyRequests_ = 0;
};

}  // namespace ToyChip
