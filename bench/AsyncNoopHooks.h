#pragma once
// The asynchronous flavour's no-op hooks for the benches: every hook that
// would program hardware returns at once (sequential multicast ids and route
// handles, no transactions, nothing stored), so a figure is the library's own
// cost. hit: what routeLastAccessedTime answers, the current time or never;
// activityReads: how many times it was asked (an aging review asks once for
// each route whose handle it found).
#include <cstdint>

#include "model/AsyncMrouteHelper.h"
#include "platform/vex/ActivityManager.h"

namespace FalBench {

class AsyncNoopHooks : public FalHelper::AsyncMrouteHelper {
 public:
  AsyncNoopHooks() : AsyncMrouteHelper("async-noop-hooks", nullptr, nullptr) {}

  bool hit = false;
  std::uint64_t activityReads = 0;

  std::uint32_t doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&, OifSetPtr, XactPtr, bool) override {
    return nextMcastId_++;
  }
  std::uint32_t doAllocateFixedMulticastGroup(OifSetPtr, XactPtr, std::uint32_t mcastId) override { return mcastId; }
  void doUpdateMulticastGroupInPlace(OifSetPtr, std::uint32_t) override {}
  XactPtr doGetXactForOifSet(std::uint32_t) override { return nullptr; }
  std::uint32_t doGetXactFailureReason(XactPtr, FalHelper::MrouteXactType) override { return 0; }
  void doDeleteOifSet(std::uint32_t) override {}
  MrouteLib::RouteHandle doAllocateRoute(IpGenRouteKey const&, Bridging::VlanIdOrNone, bool, Memtab::Multicast::Fib::RpaIndex,
                                         std::uint32_t, bool) override {
    return MrouteLib::RouteHandle(nextHandle_++);
  }
  void doSetMtableOifSet(MrouteLib::RouteHandle, std::uint32_t, XactPtr) override {}
  XactPtr doGetXactForIngress(MrouteLib::RouteHandle) override { return nullptr; }
  void doDeleteRoute(MrouteLib::RouteHandle) override {}
  Vex::Seconds routeLastAccessedTime(MrouteLib::RouteHandle) override {
    ++activityReads;
    return hit ? Vex::ActivityManager::current()->now() : 0.0;
  }

 private:
  std::uint32_t nextMcastId_ = 1;
  std::uint32_t nextHandle_ = 1;
};

}  // namespace FalBench
