// The asynchronous flavour, end to end: the agent makes the chip's switch
// and state machine through their factory and constructor, and plays the
// platform's route library for a few routes, in the order
// MrouteLib::AsyncSwitchChip states: a group for the outputs, the route,
// then the bind, each write a transaction that completes later.
#include <iostream>
#include <map>
#include <string>

#include "Checks.h"
#include "Flavours.h"
#include "Outputs.h"
#include "Platform.h"
#include "ToyAsyncAgent.h"
#include "async/AsyncMrouteSwitch.h"
#include "async/AsyncMrouteSwitchSm.h"
#include "async/AsyncMtableOifSet.h"
#include "async/MrouteCounterKeyMapTable.h"
#include "platform/bolt/CounterKeyTable.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/vex/ActivityManager.h"

namespace ToyChip {

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using MrouteLib::AsyncSwitchChip;

// What the route library keeps of one route on one chip. Holding the group
// is what keeps it in use: when the last route lets go of it, the switch
// makes it a zombie.
struct ChipRoute {
  Vex::Ptr<MrouteLib::MtableOifSet> group;
  MrouteLib::RouteHandle handle;
  AsyncSwitchChip::XactPtr ingress;  // the bind's transaction
  std::uint32_t failure = AsyncSwitchChip::kFailureNone;
};

class RouteLibraryPart {
 public:
  explicit RouteLibraryPart(Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch> sw) : sw_(std::move(sw)) {}

  ChipRoute const& routeIs(char const* source, char const* group, MrouteLib::PortVlanSet const& pvs) {
    IpGenRouteKey const k = key(source, group);
    MrouteLib::RouteKeyInfo info;
    info.vrfId = 0;
    info.routeKeyType = static_cast<std::uint8_t>(k.kind());
    info.acceptingVlan = Bridging::VlanIdOrNone(100);

    ChipRoute& r = routes_[source];
    // 1. The group: shared with routes of the same outputs, or new.
    bool const frr = !pvs.intfId().isEmpty();
    auto const groupXact = sw_->doAllocateMtableOifSet(info, registry_->oifSetIs(pvs), nullptr,
                                                       AsyncSwitchChip::kInvalidMulticastId, frr);
    r.group = sw_->oifSetResult();
    sw_->oifSetResultIs(nullptr);
    if (!r.group) {
      r.failure = sw_->mrouteFailureReason();
      return r;
    }
    // 2. The route.
    sw_->doAllocateRoute(k, info.acceptingVlan, false, 0, Platform::kVrf, false);
    r.handle = sw_->routeHandle();
    if (r.handle.isNull()) {
      r.failure = sw_->mrouteFailureReason();
      r.group = nullptr;
      return r;
    }
    // 3. The bind, once the group's transaction has completed.
    r.ingress = sw_->doSetMtableOifSet(r.handle, r.group, groupXact);
    return r;
  }

  void routeDel(std::string const& source) {
    auto it = routes_.find(source);
    if (!it->second.handle.isNull()) sw_->doDeleteRoute(it->second.handle);
    routes_.erase(it);  // lets go of the group
  }

  // Why the bind failed, as the route library asks it for the route status.
  std::uint32_t bindFailure(ChipRoute const& r) const { return sw_->doGetIngressXactFailureReason(r.ingress); }

 private:
  Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch> sw_;
  Vex::Ptr<MrouteLib::OifSetRegistry> registry_ = Vex::make<MrouteLib::OifSetRegistry>();
  std::map<std::string, ChipRoute> routes_;
};

}  // namespace

void runAsyncFlavour(Checks& checks) {
  std::cout << "== asynchronous flavour: one chip, room for 4 routes and 2 groups, writes acknowledged after 1 ms\n";
  auto* const loop = Vex::ActivityManager::current();
  Platform p;
  // The counter tables the hook object carries for the agent's counter code.
  auto counterKeys = Vex::make<FlexCounters::CounterKeyTable>("ToyChip::counterKeys", 1, 1024);
  auto counterKeyMap = Fal::Mroute::mrouteCounterKeyMapTableFactory("ToyChip::counterKeyMap");
  auto agent = Vex::make<ToyAsyncAgent>(4, 2, 0.001, counterKeys, counterKeyMap);

  auto sw = Fal::Mroute::asyncMrouteSwitchFactory("chip1", p.routeStatus, agent);
  // Clocks left null are made from the current event loop.
  auto sm = Vex::make<Fal::Mroute::AsyncMrouteSwitchSm>(sw, p.intfVlanIdTable, p.vrfConfig, p.vrf6Config, p.hwStatus,
                                                        p.hw6Status, agent, nullptr, nullptr, nullptr,
                                                        p.ethIntfStatusDir, p.allIntfStatusDir,
                                                        p.allIntfStatusLocalDir);
  RouteLibraryPart library(sw);

  // Three routes; two share a group. Nothing is acknowledged until the loop runs.
  ChipRoute const& a1 = library.routeIs("10.1.0.1/32", "239.2.1.1/32", outputs({"Ethernet2.200", "Ethernet3.200"}));
  ChipRoute const& a2 = library.routeIs("10.1.0.2/32", "239.2.1.2/32", outputs({"Ethernet2.200", "Ethernet3.200"}));
  ChipRoute const& a3 = library.routeIs("10.1.0.3/32", "239.2.1.3/32", outputs({"Ethernet4.300"}));
  checks.expect(a1.ingress && a1.ingress->pending() && agent->outstanding() == 5,
                "the writes are outstanding: 2 groups and 3 binds");
  loop->runFor(0.01);
  std::cout << "after three routes:\n";
  agent->table().print(std::cout);
  checks.expect(a1.ingress->succeeded() && a2.ingress->succeeded() && a3.ingress->succeeded(),
                "every bind's transaction succeeded");
  checks.expect(a1.group == a2.group && agent->table().entries().size() == 2, "routes with the same outputs share a group");
  checks.expect(agent->verifyRequests() > 0, "doScheduleVerify after the hardware changed");

  // No free group: the switch records why, and nothing is programmed.
  ChipRoute const& a4 = library.routeIs("10.1.0.4/32", "239.2.1.4/32", outputs({"Ethernet5.400"}));
  checks.expect(!a4.group && a4.failure == AsyncSwitchChip::kFailureNoMulticastId,
                "no free group: failure 'no multicast id' (0x8) and no route");

  // A bind the chip rejects: its transaction fails, and the reason the
  // agent gave is what the route library reads back through the switch.
  agent->rejectBinds(1);
  ChipRoute const& a5 = library.routeIs("10.1.0.5/32", "239.2.1.5/32", outputs({"Ethernet4.300"}));
  loop->runFor(0.01);
  checks.expect(a5.ingress->failed() && library.bindFailure(a5) == ToyAsyncAgent::kReasonBindRejected,
                "a rejected bind: its transaction failed with the agent's reason 0x20");
  library.routeDel("10.1.0.5/32");

  // The last route of a group goes: the group waits 3 s as a zombie.
  library.routeDel("10.1.0.3/32");
  checks.expect(sw->zombieOifSet().size() == 1 && agent->table().entries().size() == 2,
                "the unused group waits as a zombie, still in the chip");
  loop->runFor(3.0);
  checks.expect(sw->zombieOifSet().size() == 0 && agent->table().entries().size() == 1,
                "3 s later the zombie is purged: doDeleteOifSet");

  // Fast reroute: Ethernet1 goes down and the state machine rewrites the
  // protected group in place (doUpdateMulticastGroupInPlace), a new write
  // with a transaction of its own.
  ChipRoute const& a6 = library.routeIs("10.1.0.6/32", "239.2.1.6/32", frrOutputs());
  loop->runFor(0.01);
  std::uint32_t const group6 = sw->doGetMulticastId(a6.group);
  p.ethIntfStatusDir->intfStatusIs(Netcore::IntfId::ethernet(1))->operStatusIs(Interface::intfOperDown);
  loop->runFor(0.01);
  std::cout << "after Ethernet1 went down:\n";
  agent->table().print(std::cout);
  auto const rewrite = agent->doGetXactForOifSet(group6);
  checks.expect(agent->table().entries().at(group6) == "Ethernet3.300 Ethernet4.300" && rewrite && rewrite->succeeded(),
                "fast reroute rewrote the group in place, and the chip acknowledged it");

  // Tear-down: the routes go, then the state machine, whose cleanup
  // releases the zombies at once.
  library.routeDel("10.1.0.1/32");
  library.routeDel("10.1.0.2/32");
  library.routeDel("10.1.0.6/32");
  sm = nullptr;
  std::cout << "after tear-down:\n";
  agent->table().print(std::cout);
  checks.expect(agent->table().routes().empty() && agent->table().entries().empty(), "the chip is empty");
  checks.clean(agent->table());
}

}  // namespace ToyChip
