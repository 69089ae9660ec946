#include "tests/doubles/RecordingAsyncMrouteHelper.h"

#include <algorithm>
#include <sstream>

#include "platform/vex/ActivityManager.h"
#include "tests/doubles/CallLine.h"

namespace FalTest {

namespace {
std::string desc(FalHelper::AsyncMrouteHelper::XactPtr const& x) { return x ? x->description() : "null"; }
std::string setOutputs(FalHelper::AsyncMrouteHelper::OifSetPtr const& s) {
  return s ? RecordingAsyncMrouteHelper::outputs(s->portVlanSet()) : "null";
}

constexpr char const* kHardwareCalls[] = {"doAllocateSharableMulticastGroup", "doAllocateFixedMulticastGroup",
                                          "doUpdateMulticastGroupInPlace",    "doDeleteOifSet",
                                          "doAllocateRoute",                  "doSetMtableOifSet",
                                          "doDeleteRoute"};
}  // namespace

std::string RecordingAsyncMrouteHelper::outputs(MrouteLib::PortVlanSet const& pvs) {
  std::ostringstream os;
  os << '[';
  char const* sep = "";
  for (auto const& pv : pvs.portVlan()) {
    os << sep << pv;
    sep = " ";
  }
  os << ']';
  return os.str();
}

std::vector<std::string> RecordingAsyncMrouteHelper::callsTo(std::string const& prefix) const {
  std::vector<std::string> out;
  for (auto const& c : calls)
    if (c.rfind(prefix, 0) == 0) out.push_back(c);
  return out;
}

std::vector<std::string> RecordingAsyncMrouteHelper::hardwareCalls() const {
  std::vector<std::string> out;
  for (auto const& c : calls) {
    std::string const name = c.substr(0, c.find('('));
    if (std::find(std::begin(kHardwareCalls), std::end(kHardwareCalls), name) != std::end(kHardwareCalls)) out.push_back(c);
  }
  return out;
}

Vex::Ptr<Bolt::Xact> RecordingAsyncMrouteHelper::groupXact(std::uint32_t mcastId) const {
  auto it = groupXact_.find(mcastId);
  return it == groupXact_.end() ? nullptr : it->second;
}

Vex::Ptr<Bolt::Xact> RecordingAsyncMrouteHelper::ingressXact(MrouteLib::RouteHandle handle) const {
  auto it = ingressXact_.find(handle);
  return it == ingressXact_.end() ? nullptr : it->second;
}

void RecordingAsyncMrouteHelper::record(char const* name, std::string l) {
  calls.push_back(std::move(l));
  auto it = costOf.find(name);
  Vex::Seconds const cost = it == costOf.end() ? costPerCall : it->second;
  if (cost > 0) {
    if (auto* am = Vex::ActivityManager::current()) am->advanceBy(cost);
  }
  if (onCall) onCall(name);
}

std::uint32_t RecordingAsyncMrouteHelper::groupIs(std::uint32_t mcastId, OifSetPtr const& oifSet) {
  groups[mcastId] = oifSet ? oifSet->portVlanSet() : MrouteLib::PortVlanSet();
  groupXact_[mcastId] = Bolt::Xact::xactNew("group " + std::to_string(mcastId));
  return mcastId;
}

void RecordingAsyncMrouteHelper::handleMrouteCounterMode(Routing::Multicast::Fib::CounterMode mode) {
  record("handleMrouteCounterMode", callLine("handleMrouteCounterMode", mode));
}

void RecordingAsyncMrouteHelper::handleWildcardCounter(bool allCounter) {
  record("handleWildcardCounter", callLine("handleWildcardCounter", b(allCounter)));
}

std::uint32_t RecordingAsyncMrouteHelper::doAllocateSharableMulticastGroup(MrouteLib::RouteKeyInfo const&,
                                                                           OifSetPtr oifSet, XactPtr blockingXact,
                                                                           bool excludeEmptyMcid) {
  record("doAllocateSharableMulticastGroup",
         callLine("doAllocateSharableMulticastGroup", setOutputs(oifSet), desc(blockingXact), b(excludeEmptyMcid)));
  if (noFreeMcastId) return kInvalidMcastId;
  return groupIs(nextMcastId++, oifSet);
}

std::uint32_t RecordingAsyncMrouteHelper::doAllocateFixedMulticastGroup(OifSetPtr oifSet, XactPtr blockingXact,
                                                                        std::uint32_t mcastId) {
  record("doAllocateFixedMulticastGroup",
         callLine("doAllocateFixedMulticastGroup", setOutputs(oifSet), desc(blockingXact), mcastId));
  if (noFreeMcastId) return kInvalidMcastId;
  return groupIs(mcastId, oifSet);
}

void RecordingAsyncMrouteHelper::doUpdateMulticastGroupInPlace(OifSetPtr oifSet, std::uint32_t mcastId) {
  record("doUpdateMulticastGroupInPlace", callLine("doUpdateMulticastGroupInPlace", setOutputs(oifSet), mcastId));
  if (!groups.count(mcastId)) violations.push_back("group " + std::to_string(mcastId) + " rewritten but not programmed");
  groupIs(mcastId, oifSet);
}

FalHelper::AsyncMrouteHelper::XactPtr RecordingAsyncMrouteHelper::doGetXactForOifSet(std::uint32_t mcastId) {
  record("doGetXactForOifSet", callLine("doGetXactForOifSet", mcastId));
  return groupXact(mcastId);
}

std::uint32_t RecordingAsyncMrouteHelper::doGetXactFailureReason(XactPtr xact, FalHelper::MrouteXactType type) {
  record("doGetXactFailureReason", callLine("doGetXactFailureReason", desc(xact), type));
  return xact ? xact->reason() : 0;
}

void RecordingAsyncMrouteHelper::doDeleteOifSet(std::uint32_t mcastId) {
  record("doDeleteOifSet", callLine("doDeleteOifSet", mcastId));
  ++groupDeletes[mcastId];
  if (!groups.erase(mcastId)) violations.push_back("group " + std::to_string(mcastId) + " deleted but not programmed");
  groupXact_.erase(mcastId);
  for (auto const& [handle, route] : routes) {
    if (route.mcastId == mcastId) {
      violations.push_back("group " + std::to_string(mcastId) + " deleted while route " + std::to_string(handle.value()) +
                           " points at it");
    }
  }
}

MrouteLib::RouteHandle RecordingAsyncMrouteHelper::doAllocateRoute(IpGenRouteKey const& key,
                                                                   Bridging::VlanIdOrNone acceptingVlanId,
                                                                   bool bridgeAction,
                                                                   Memtab::Multicast::Fib::RpaIndex rpaIndex,
                                                                   std::uint32_t vrfId, bool fastdrop) {
  record("doAllocateRoute",
         callLine("doAllocateRoute", key, acceptingVlanId, b(bridgeAction), rpaIndex, vrfId, b(fastdrop)));
  if (routeAllocFails) return MrouteLib::RouteHandle::invalid();
  MrouteLib::RouteHandle const handle(nextRouteHandle++);
  routes[handle] = Route{};
  return handle;
}

void RecordingAsyncMrouteHelper::doSetMtableOifSet(MrouteLib::RouteHandle routeHandle, std::uint32_t mcastId,
                                                   XactPtr xact) {
  record("doSetMtableOifSet", callLine("doSetMtableOifSet", routeHandle, mcastId, desc(xact)));
  auto it = routes.find(routeHandle);
  if (it == routes.end()) {
    violations.push_back("route " + std::to_string(routeHandle.value()) + " bound but not programmed");
    return;
  }
  if (!groups.count(mcastId)) violations.push_back("route bound to group " + std::to_string(mcastId) + " not programmed");
  it->second.mcastId = mcastId;
  ingressXact_[routeHandle] = Bolt::Xact::xactNew("route " + std::to_string(routeHandle.value()));
}

FalHelper::AsyncMrouteHelper::XactPtr RecordingAsyncMrouteHelper::doGetXactForIngress(MrouteLib::RouteHandle routeHandle) {
  record("doGetXactForIngress", callLine("doGetXactForIngress", routeHandle));
  return ingressXact(routeHandle);
}

void RecordingAsyncMrouteHelper::doDeleteRoute(MrouteLib::RouteHandle routeHandle) {
  record("doDeleteRoute", callLine("doDeleteRoute", routeHandle));
  if (!routes.erase(routeHandle)) {
    violations.push_back("route " + std::to_string(routeHandle.value()) + " deleted but not programmed");
  }
  ingressXact_.erase(routeHandle);
}

Vex::Seconds RecordingAsyncMrouteHelper::routeLastAccessedTime(MrouteLib::RouteHandle routeHandle) {
  record("routeLastAccessedTime", callLine("routeLastAccessedTime", routeHandle));
  auto it = lastAccessed.find(routeHandle);
  return it == lastAccessed.end() ? 0.0 : it->second;
}

bool RecordingAsyncMrouteHelper::needFixedOifSet(RouteKeyType type) {
  record("needFixedOifSet", callLine("needFixedOifSet", type));
  return fixedTypes.count(type) != 0;
}

bool RecordingAsyncMrouteHelper::needIngressProgramming(RouteKeyType type) {
  record("needIngressProgramming", callLine("needIngressProgramming", type));
  return noIngressTypes.count(type) == 0;
}

bool RecordingAsyncMrouteHelper::mcastIdReusable(std::uint32_t mcastId) {
  record("mcastIdReusable", callLine("mcastIdReusable", mcastId));
  return notReusable.count(mcastId) == 0;
}

bool RecordingAsyncMrouteHelper::mcastIdIsValid(std::uint32_t mcastId) {
  record("mcastIdIsValid", callLine("mcastIdIsValid", mcastId));
  return AsyncMrouteHelper::mcastIdIsValid(mcastId);
}

Vex::Seconds RecordingAsyncMrouteHelper::doGetAdjustedPollingInterval(Vex::Seconds interval, Netcore::AddressFamily af) {
  record("doGetAdjustedPollingInterval", callLine("doGetAdjustedPollingInterval", interval, af));
  return std::max(interval, minPollingInterval);
}

Vex::Seconds RecordingAsyncMrouteHelper::doGetAdjustedActivityPollInterval(Vex::Seconds interval,
                                                                           Netcore::AddressFamily af) {
  record("doGetAdjustedActivityPollInterval", callLine("doGetAdjustedActivityPollInterval", interval, af));
  return std::max(interval, minActivityPollInterval);
}

void RecordingAsyncMrouteHelper::doScheduleVerify() { record("doScheduleVerify", "doScheduleVerify()"); }

}  // namespace FalTest
