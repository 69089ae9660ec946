#pragma once
// MrouteSwitchRig: one chip of the synchronous flavour on virtual time: the
// entities the agent hands Fal::MrouteSwitch and Fal::MrouteSwitchSm, a
// recording hook object, an OIF-set registry standing in for the route
// programmer's, and "FalMroute" traces captured in memory.
//
// Set the entities up, then start(). The helpers below play the route
// programmer: allocate a set, program a route with it, read the results at
// once. Dropping the rig lets a review pass that ran out of time finish, then
// destroys the state machine and the switch before the entities and the loop.
#include <initializer_list>
#include <memory>
#include <string>

#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3MulticastRequest.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/intf/IpStatus.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Trace.h"
#include "sync/MrouteSwitch.h"
#include "sync/MrouteSwitchSm.h"
#include "tests/doubles/RecordingMrouteHelper.h"
#include "tests/doubles/RouteShapes.h"

namespace FalTest {

class MrouteSwitchRig : public RouteShapes {
 public:
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  using VrfConfig = Routing::Multicast::Fib::VrfConfig;
  static constexpr Vex::Seconds kStart = 100.0;
  static constexpr std::uint32_t kSwitchId = 1;
  static constexpr std::uint16_t kRedVrfId = 7;

  MrouteSwitchRig() : traceLevels_(trace_.levels()) {
    trace_.enable();
    Vex::traceSinkAdd(capture);
    l3Status->vrfIs(L3::VrfName("red"), kRedVrfId);
    acsd->initializedIs(true);
  }
  ~MrouteSwitchRig() {
    // A pass stopped for time holds a process-wide position: let it finish.
    helper->costPerCall = 0;
    am.runUntil(am.now());
    sm = nullptr;
    sw = nullptr;
    Vex::traceSinkDel(capture);
    trace_.levelsIs(traceLevels_);
  }
  MrouteSwitchRig(MrouteSwitchRig const&) = delete;
  MrouteSwitchRig& operator=(MrouteSwitchRig const&) = delete;

  // The switch, then its state machine through the agent's creator.
  void start(Vex::Ptr<Vex::Clock> const& clock = nullptr, Vex::Ptr<Vex::Clock> const& zombieClock = nullptr) {
    sw = Fal::mrouteSwitchFactory(kSwitchId, acsd, l3Status, helper, ipStatus, hwStatus, hw6Status);
    sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(kSwitchId, acsd, l3Status, sw, intfVlanIdTable, vrfConfig, vrf6Config,
                                               hwStatus, hw6Status, helper, clock, zombieClock, ethIntfStatusDir,
                                               allIntfStatusDir, allIntfStatusLocalDir, false, nullptr, nullptr);
    sm->vex_L3MulticastRequestInIs(l3MulticastRequest);
  }

  MrouteLib::OifSetPtr oifSet(MrouteLib::PortVlanSet const& pvs) { return registry->oifSetIs(pvs); }

  // The chip's set for these outputs, or null; the switch's result attribute
  // is cleared as the route programmer consumes it.
  Vex::Ptr<Fal::MtableOifSet> allocSet(MrouteLib::OifSetPtr const& o) {
    sw->doAllocateMtableOifSet(o);
    auto set = Vex::ptrCast<Fal::MtableOifSet>(sw->oifSetResult());
    sw->oifSetResultIs(nullptr);
    return set;
  }
  // Programs a route replicating through set, then binds it to the set, as
  // the route programmer does; returns the handle (invalid when refused).
  MrouteLib::RouteHandle addRoute(IpGenRouteKey const& k, Vex::Ptr<Fal::MtableOifSet> const& set,
                                  std::uint16_t rpaId = 0, char const* vrf = "red") {
    sw->doAllocateRoute(k, Bridging::VlanIdOrNone(10), false, set, false, false, rpaId, L3::VrfName(vrf));
    MrouteLib::RouteHandle const h = sw->handleResult();
    if (!h.isNull() && set) sw->doSetMtableOifSet(h, set);
    return h;
  }
  MrouteLib::RouteHandle program(IpGenRouteKey const& k, MrouteLib::OifSetPtr const& o) { return addRoute(k, allocSet(o)); }

  // The index of the set that now programs these outputs, or 0xFFFFFFFF.
  std::uint32_t inUseIndex(MrouteLib::OifSetPtr const& o) const {
    auto set = sw->inUseOifSet(o.get());
    return set ? set->oifSetIndex() : Fal::invalidOifSetIndex();
  }
  Vex::Seconds now() const { return am.now(); }
  void runUntil(Vex::Seconds t) { am.runUntil(t); }
  std::vector<std::string> callsTo(std::string const& prefix) const { return helper->callsTo(prefix); }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(kStart)};
  Vex::Ptr<Fal::VerifyData> verifyData = Vex::make<Fal::VerifyData>(false);
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>(verifyData);
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<Fal::L3MulticastRequest> l3MulticastRequest = Vex::make<Fal::L3MulticastRequest>();
  Vex::Ptr<VrfConfig> vrfConfig = Vex::make<VrfConfig>();
  Vex::Ptr<VrfConfig> vrf6Config = Vex::make<VrfConfig>();
  Vex::Ptr<HwStatus> hwStatus = Vex::make<HwStatus>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<HwStatus> hw6Status = Vex::make<HwStatus>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<Ip::Status> ipStatus = Vex::make<Ip::Status>();
  Vex::Ptr<IntfVlanId::Table> intfVlanIdTable = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = Vex::make<Interface::EthIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Vex::make<Interface::AllIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir = Vex::make<Interface::AllIntfStatusLocalDir>();
  Vex::Ptr<MrouteLib::OifSetRegistry> registry = Vex::make<MrouteLib::OifSetRegistry>();
  Vex::Ptr<RecordingMrouteHelper> helper = Vex::make<RecordingMrouteHelper>();
  std::shared_ptr<Vex::CaptureTraceSink> capture = std::make_shared<Vex::CaptureTraceSink>();
  Vex::Ptr<Fal::MrouteSwitch> sw;
  Vex::Ptr<Fal::MrouteSwitchSm> sm;

 private:
  Vex::TraceHandle& trace_ = Vex::traceHandle("FalMroute");
  std::uint16_t traceLevels_;
};

}  // namespace FalTest
