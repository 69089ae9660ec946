#include "ToyAsyncAgent.h"

#include <utility>

#include "ChipText.h"

#include "platform/vex/ActivityManager.h"
#include "platform/vex/Trace.h"

namespace ToyChip {

// Acknowledges the queued writes when the clock fires.
class ToyAsyncAgent::Acknowledger final : public Vex::Clock::Notifiee {
 public:
  Acknowledger(ToyAsyncAgent& agent, Vex::Ptr<Vex::Clock> const& clock) : agent_(agent) {
    notifierIs(Vex::Ptr<Vex::Clock const>(clock));
  }
  void onTime() override { agent_.acknowledge(); }

 private:
  ToyAsyncAgent& agent_;  // not owned: the agent owns this reactor
};

ToyAsyncAgent::ToyAsyncAgent(std::size_t routeCapacity, std::size_t groupCapacity, Vex::Seconds latency,
                             Vex::Ptr<FlexCounters::CounterKeyTable> counterKeyTable,
                             Vex::Ptr<Fal::Mroute::MrouteCounterKeyMapTable> counterKeyMap)
    : FalHelper::AsyncMrouteHelper("ToyChip::ToyAsyncAgent", std::move(counterKeyTable), std::move(counterKeyMap)),
      table_(routeCapacity, groupCapacity),
      latency_(latency),
      trace_(Vex::traceHandle("ToyChip")),
      clock_(Vex::ActivityManager::current()->clockNew()),
      acknowledger_(std::make_unique<Acknowledger>(*this, clock_)) {}

ToyAsyncAgent::~ToyAsyncAgent() = default;

Vex::Ptr<Bolt::Xact> ToyAsyncAgent::started(Write write, std::string description) {
  write.xact = Bolt::Xact::xactNew(std::move(description));
  write.due = Vex::ActivityManager::current()->now() + latency_;
  if (queue_.empty()) clock_->timeMinIs(write.due);
  queue_.push_back(std::move(write));
  return queue_.back().xact;
}

void ToyAsyncAgent::acknowledge() {
  Vex::Seconds const now = Vex::ActivityManager::current()->now();
  while (!queue_.empty() && queue_.front().due <= now) {
    Write w = std::move(queue_.front());
    queue_.pop_front();
    if (w.after && w.after->failed()) {
      w.xact->failedIs(w.after->reason());
    } else if (w.rejectWith != 0) {
      w.xact->failedIs(w.rejectWith);
    } else {
      if (w.apply) w.apply();
      w.xact->succeededIs();
    }
    // The agent's own trace handle, enabled like the library's:
    // VEX_TRACE=ToyChip/0-3 on the command line.
    VEX_TRACE(trace_, 3, "ToyAsyncAgent", "acknowledged " << *w.xact);
  }
  if (!queue_.empty()) clock_->timeMinIs(queue_.front().due);
}

std::uint32_t ToyAsyncAgent::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const& routeKeyInfo,
                                                              OifSetPtr oifSet, XactPtr blockingXact,
                                                              bool excludeEmptyMcid) {
  // No free group: the invalid id, which the library records as the
  // route's failure ("no free multicast id"); nothing else is to be done.
  std::uint32_t const id = table_.entryAdd(outputsText(oifSet->portVlanSet()));
  if (id == ToyTable::kNone) return kInvalidMcastId;
  groupXact_[id] = started({.after = blockingXact}, "group " + std::to_string(id));
  return id;
}

std::uint32_t ToyAsyncAgent::doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact,
                                                           std::uint32_t mcastId) {
  if (!table_.entryAddAt(mcastId, outputsText(oifSet->portVlanSet()))) return kInvalidMcastId;
  groupXact_[mcastId] = started({.after = blockingXact}, "fixed group " + std::to_string(mcastId));
  return mcastId;
}

void ToyAsyncAgent::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId) {
  table_.entryWrite(mcastId, outputsText(oifSet->portVlanSet()));
  groupXact_[mcastId] = started({}, "group " + std::to_string(mcastId) + " rewritten");
}

ToyAsyncAgent::XactPtr ToyAsyncAgent::doGetXactForOifSet(std::uint32_t mcastId) {
  auto const it = groupXact_.find(mcastId);
  return it == groupXact_.end() ? nullptr : it->second;
}

std::uint32_t ToyAsyncAgent::doGetXactFailureReason(XactPtr xact, FalHelper::MrouteXactType type) {
  // The reason the chip gave, for a group's and a route's transaction alike.
  return xact ? xact->reason() : 0;
}

void ToyAsyncAgent::doDeleteOifSet(std::uint32_t mcastId) {
  table_.entryDel(mcastId);
  groupXact_.erase(mcastId);
}

MrouteLib::RouteHandle ToyAsyncAgent::doAllocateRoute(IpGenRouteKey const& key, Bridging::VlanIdOrNone acceptingVlanId,
                                                      bool bridgeAction, Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                                      std::uint32_t vrfId, bool fastdrop) {
  std::uint32_t const handle = table_.routeAdd({vrfId, keyText(key), acceptingVlanId.value(), 0, bridgeAction});
  return handle == ToyTable::kNone ? MrouteLib::invalidRouteHandle : MrouteLib::RouteHandle(handle);
}

void ToyAsyncAgent::doSetMtableOifSet(MrouteLib::RouteHandle routeHandle, std::uint32_t mcastId, XactPtr xact) {
  Write bind{.after = xact};
  if (rejectBinds_ > 0) {
    --rejectBinds_;
    bind.rejectWith = kReasonBindRejected;
  }
  bind.apply = [this, handle = routeHandle.value(), mcastId] {
    if (table_.routes().contains(handle)) table_.routeEntryIs(handle, mcastId);  // unless deleted meanwhile
  };
  ingressXact_[routeHandle.value()] =
      started(std::move(bind), "route " + std::to_string(routeHandle.value()) + " to group " + std::to_string(mcastId));
}

ToyAsyncAgent::XactPtr ToyAsyncAgent::doGetXactForIngress(MrouteLib::RouteHandle routeHandle) {
  auto const it = ingressXact_.find(routeHandle.value());
  return it == ingressXact_.end() ? nullptr : it->second;
}

void ToyAsyncAgent::doDeleteRoute(MrouteLib::RouteHandle routeHandle) {
  table_.routeDel(routeHandle.value());
  ingressXact_.erase(routeHandle.value());
}

}  // namespace ToyChip
