// The synchronous flavour, end to end: the agent makes the library's
// objects through their creators and factories, hands the route programmer
// its routes, and reads back what the chip holds.
#include <iostream>

#include "ChipText.h"
#include "Checks.h"
#include "Flavours.h"
#include "Outputs.h"
#include "Platform.h"
#include "ToySyncAgent.h"
#include "platform/mroutelib/DesiredRoute.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "platform/vex/ActivityManager.h"
#include "sync/MrouteSm.h"
#include "sync/MrouteSwitch.h"
#include "sync/MrouteSwitchSm.h"

namespace ToyChip {

namespace {

using Routing::Multicast::Fib::IpGenRouteKey;
using Programmer = MrouteLib::RouteProgrammer;

// A route of the default VRF accepting on VLAN 100 and sent to `pvs`.
MrouteLib::DesiredRoute route(IpGenRouteKey const& k, MrouteLib::PortVlanSet const& pvs) {
  MrouteLib::DesiredRoute r(Platform::kVrf, k);
  r.acceptingVlanIs(Bridging::VlanIdOrNone(100));
  r.acceptingIntfIdIs(Netcore::IntfId::vlan(100));
  r.outputsIs(pvs);
  return r;
}

}  // namespace

void runSyncFlavour(Checks& checks) {
  std::cout << "== synchronous flavour: one chip, room for 4 routes and 3 replication entries\n";
  auto* const loop = Vex::ActivityManager::current();
  Platform p;
  auto agent = Vex::make<ToySyncAgent>(4, 3);

  // Bring-up. The top-level state machine calls mrouteInit(true) and, since
  // the VRF has multicast routing enabled, handleMulticastRouting(true) once
  // the hardware status allows routing.
  auto sm = Fal::MrouteSmIs(p.acsd, p.l3Status, p.vrfConfig, p.hwStatus, p.ipStatus, agent, p.vrfEnabledStatus);
  agent->mrouteSmIs(sm);  // so that the agent's own code can reach it
  auto sw = Fal::mrouteSwitchFactory(0, p.acsd, p.l3Status, agent, p.ipStatus, p.hwStatus, p.hw6Status);
  auto swSm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(0, p.acsd, p.l3Status, sw, p.intfVlanIdTable, p.vrfConfig,
                                                    p.vrf6Config, p.hwStatus, p.hw6Status, agent, nullptr, nullptr,
                                                    p.ethIntfStatusDir, p.allIntfStatusDir, p.allIntfStatusLocalDir,
                                                    false, nullptr, nullptr);
  swSm->vex_L3MulticastRequestInIs(p.l3MulticastRequest);
  // The platform's route programmer drives the chip through its switch.
  auto programmer = Vex::make<Programmer>(Vex::make<MrouteLib::OifSetRegistry>(), p.hwStatus, p.hw6Status);
  programmer->switchChipIs(sw);
  p.hwStatus->hwRoutingIs(true);
  checks.expect(agent->initialized() && agent->routingEnabled(), "mrouteInit(true), then multicast routing enabled");

  // A batch of routes: two with the same outputs share one replication entry.
  IpGenRouteKey const r1 = key("10.0.0.1/32", "239.1.1.1/32");
  IpGenRouteKey const r2 = key("10.0.0.2/32", "239.1.1.2/32");
  IpGenRouteKey const r3 = key("10.0.0.3/32", "239.1.1.3/32");
  programmer->routeIs(route(r1, outputs({"Ethernet2.200", "Ethernet3.200"})));
  programmer->routeIs(route(r2, outputs({"Ethernet2.200", "Ethernet3.200"})));
  programmer->routeIs(route(r3, outputs({"Ethernet4.300"})));
  programmer->commit();
  p.l3MulticastRequest->multicastReviewPendingInc();  // the route owner tells the chips routes changed
  std::cout << "after three routes:\n";
  agent->table().print(std::cout);
  auto const& routes = agent->table().routes();
  checks.expect(routes.size() == 3 && agent->table().entries().size() == 2, "3 routes through 2 replication entries");
  auto const h1 = agent->table().routeHandle(keyText(r1));
  auto const h2 = agent->table().routeHandle(keyText(r2));
  checks.expect(h1 != ToyTable::kNone && h2 != ToyTable::kNone && routes.at(h1).entry == routes.at(h2).entry,
                "routes with the same outputs share one entry");
  checks.expect(p.hwStatus->vrfStatus(Platform::kVrf)->route(r3)->programmed(), "the route status says programmed");
  checks.expect(agent->commits() > 0, "the batch ended with doCommitMrouteBatch");

  // A full route table: the fifth route is parked, and its status says why.
  IpGenRouteKey const r4 = key("10.0.0.4/32", "239.1.1.4/32");
  IpGenRouteKey const r5 = key("10.0.0.5/32", "239.1.1.5/32");
  programmer->routeIs(route(r4, outputs({"Ethernet2.200", "Ethernet3.200"})));
  programmer->routeIs(route(r5, outputs({"Ethernet5.400"})));
  programmer->commit();
  p.l3MulticastRequest->multicastReviewPendingInc();
  auto const status5 = p.hwStatus->vrfStatus(Platform::kVrf)->route(r5);
  checks.expect(agent->table().routes().size() == 4 && !sw->mrouteTcamFree(),
                "the route table is full: mrouteFull answered true, the switch's mrouteTcamFree went false");
  checks.expect(!status5->programmed() && status5->failureReason() == Programmer::kFailureRouteTableFull,
                "the fifth route is parked: not programmed, failure 'route table full'");

  // Room comes back: the parked route is programmed. The third route's
  // entry is kept as a zombie, in case a route with its outputs comes back.
  programmer->routeDel(Platform::kVrf, r3);
  programmer->commit();
  p.l3MulticastRequest->multicastReviewPendingInc();
  std::cout << "after deleting the third route:\n";
  agent->table().print(std::cout);
  checks.expect(status5->programmed() && agent->table().routeHandle(keyText(r5)) != ToyTable::kNone,
                "the parked route is programmed once the table has room");
  checks.expect(sw->zombieOifSet().size() == 1 && agent->table().entries().size() == 3,
                "the freed entry waits as a zombie, still in the chip");
  loop->runFor(Fal::MrouteSwitch::kDefaultZombieLifetime);
  checks.expect(sw->zombieOifSet().size() == 0 && agent->table().entries().size() == 2,
                "4 s later the zombie is released: handleFreeMtableOifSet");

  // Fast reroute: a route whose outputs on Ethernet2 are protected by a
  // backup on Ethernet4, for traffic arriving on Ethernet1. When Ethernet1
  // goes down the library rewrites the route's entry in place: the same
  // index, new outputs (doAllocateMtableOifSet with the entry's own index).
  IpGenRouteKey const r6 = key("10.0.0.6/32", "239.1.1.6/32");
  programmer->routeDel(Platform::kVrf, r4);
  programmer->routeIs(route(r6, frrOutputs()));
  programmer->commit();
  p.l3MulticastRequest->multicastReviewPendingInc();
  std::uint32_t const h6 = agent->table().routeHandle(keyText(r6));
  std::uint32_t const entry6 = h6 == ToyTable::kNone ? 0 : agent->table().routes().at(h6).entry;
  p.ethIntfStatusDir->intfStatusIs(Netcore::IntfId::ethernet(1))->operStatusIs(Interface::intfOperDown);
  loop->runFor(0.1);
  std::cout << "after Ethernet1 went down:\n";
  agent->table().print(std::cout);
  checks.expect(entry6 != 0 && agent->table().routes().at(h6).entry == entry6 &&
                    agent->table().entries().at(entry6) == "Ethernet3.300 Ethernet4.300",
                "fast reroute rewrote the route's entry in place: Ethernet2.300 gave way to Ethernet4.300");

  // The library checks the chip through the verify hooks when asked.
  p.verifyData->doRequestVerify();
  checks.clean(agent->table());

  // Tear-down: the owner deletes its routes, then the library's objects go
  // and their cleanup tells the hooks.
  for (auto const* k : {&r1, &r2, &r5, &r6}) programmer->routeDel(Platform::kVrf, *k);
  programmer->commit();
  programmer = nullptr;
  swSm = nullptr;  // frees the chip's zombies at once, then mrouteSwitchInit(0, false)
  sw = nullptr;
  agent->mrouteSmIs(nullptr);
  sm = nullptr;  // handleMulticastRouting(false), then mrouteInit(false)
  std::cout << "after tear-down:\n";
  agent->table().print(std::cout);
  checks.expect(agent->table().routes().empty() && agent->table().entries().empty(), "the chip is empty");
  checks.expect(!agent->initialized() && !agent->routingEnabled(), "multicast routing disabled, mrouteInit(false)");
  checks.clean(agent->table());
}

}  // namespace ToyChip
