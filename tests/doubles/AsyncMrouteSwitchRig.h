#pragma once
// AsyncMrouteSwitchRig: one chip of the asynchronous flavour on virtual time:
// the chip's hardware route status (VRFs "red" and "blue"), a recording hook
// object, an OIF-set registry standing in for the route programmer's, the
// switch, and "FalMroute" traces captured in memory; startSm() adds the
// chip's state machine over the entities the agent would hand it.
//
// The helpers play the route programmer: allocate a group for a set, program
// a route, bind it, and hold each bound route's record as the programmer's
// route does, so that deleting the route drops that reference.
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "async/AsyncMrouteSwitch.h"
#include "async/AsyncMrouteSwitchSm.h"
#include "platform/fib/routing/RouteStatus.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Trace.h"
#include "tests/doubles/RecordingAsyncMrouteHelper.h"
#include "tests/doubles/RouteShapes.h"

namespace FalTest {

class AsyncMrouteSwitchRig : public RouteShapes {
 public:
  using RouteKeyType = Routing::Multicast::Fib::RouteKeyType;
  using SetPtr = Vex::Ptr<Fal::Mroute::AsyncMtableOifSet>;
  static constexpr Vex::Seconds kStart = 100.0;
  static constexpr Fal::VrfId kRedVrfId = 7;
  static constexpr Fal::VrfId kBlueVrfId = 9;

  AsyncMrouteSwitchRig() : traceLevels_(trace_.levels()) {
    trace_.enable();
    Vex::traceSinkAdd(capture);
    routeStatus->vrfStatusIs("red", kRedVrfId);
    routeStatus->vrfStatusIs("blue", kBlueVrfId);
    sw = Fal::Mroute::asyncMrouteSwitchFactory("chip1", routeStatus, helper);
  }
  virtual ~AsyncMrouteSwitchRig() {
    // A review pass stopped for time holds a process-wide position: let it finish.
    helper->costPerCall = 0;
    helper->costOf.clear();
    am.runUntil(am.now());
    sm = nullptr;
    bound.clear();
    sw = nullptr;
    Vex::traceSinkDel(capture);
    trace_.levelsIs(traceLevels_);
  }
  AsyncMrouteSwitchRig(AsyncMrouteSwitchRig const&) = delete;
  AsyncMrouteSwitchRig& operator=(AsyncMrouteSwitchRig const&) = delete;

  // The state machine, with or without the IPv6 configuration.
  void startSm(bool withIpv6 = true) {
    sm = Vex::make<Fal::Mroute::AsyncMrouteSwitchSm>(sw, intfVlanIdTable, vrfConfig, withIpv6 ? vrf6Config : nullptr,
                                                     hwStatus, withIpv6 ? hw6Status : nullptr, helper, nullptr, nullptr,
                                                     nullptr, ethIntfStatusDir, allIntfStatusDir, allIntfStatusLocalDir);
  }

  MrouteLib::OifSetPtr oifSet(MrouteLib::PortVlanSet const& pvs) { return registry->oifSetIs(pvs); }
  static MrouteLib::RouteKeyInfo info(RouteKeyType type = RouteKeyType::ipv4SG) {
    MrouteLib::RouteKeyInfo i;
    i.vrfId = kRedVrfId;
    i.routeKeyType = static_cast<std::uint8_t>(type);
    i.acceptingVlan = Bridging::VlanIdOrNone(10);
    return i;
  }

  // The chip's record for the set, or null; the result attribute is cleared
  // as the route programmer consumes it. The transaction returned is kept in
  // lastXact.
  SetPtr allocSet(MrouteLib::OifSetPtr const& o, RouteKeyType type = RouteKeyType::ipv4SG,
                  std::uint32_t presetId = MrouteLib::AsyncSwitchChip::kInvalidMulticastId) {
    lastXact = sw->doAllocateMtableOifSet(info(type), o, nullptr, presetId, !o->portVlanSet().intfId().isEmpty());
    auto set = Vex::ptrCast<Fal::Mroute::AsyncMtableOifSet>(sw->oifSetResult());
    sw->oifSetResultIs(nullptr);
    return set;
  }
  MrouteLib::RouteHandle addRoute(IpGenRouteKey const& k, char const* vrf = "red", std::uint16_t vlan = 10,
                                  Memtab::Multicast::Fib::RpaIndex rpaId = 0) {
    sw->doAllocateRoute(k, Bridging::VlanIdOrNone(vlan), false, rpaId, L3::VrfName(vrf), false);
    return sw->routeHandle();
  }
  // Binds the route to the set and holds the set for it, as the
  // programmer's route does (a route bound again lets go of its old set).
  void bind(MrouteLib::RouteHandle h, SetPtr const& set) {
    sw->doSetMtableOifSet(h, set, lastXact);
    bound[h] = set;
  }
  // Allocates, programs and binds; returns the handle.
  MrouteLib::RouteHandle program(IpGenRouteKey const& k, MrouteLib::OifSetPtr const& o,
                                 RouteKeyType type = RouteKeyType::ipv4SG,
                                 std::uint32_t presetId = MrouteLib::AsyncSwitchChip::kInvalidMulticastId) {
    SetPtr const set = allocSet(o, type, presetId);
    MrouteLib::RouteHandle const h = addRoute(k);
    if (set && !h.isNull()) bind(h, set);
    return h;
  }
  // Deletes the route, then lets go of its set.
  void unprogram(MrouteLib::RouteHandle h) {
    sw->doDeleteRoute(h);
    bound.erase(h);
  }

  // The multicast id now shared for these outputs, or the invalid id.
  std::uint32_t inUseId(MrouteLib::OifSetPtr const& o) const {
    auto* set = sw->inUseOifSet(o.get());
    return set ? set->multicastId() : MrouteLib::AsyncSwitchChip::kInvalidMulticastId;
  }
  bool traced(std::string const& text) const { return capture->contains(text); }
  void forget() {
    helper->clear();
    capture->clear();
  }
  Vex::Seconds now() const { return am.now(); }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(kStart)};
  Vex::Ptr<Routing::Hardware::RouteStatus> routeStatus = Vex::make<Routing::Hardware::RouteStatus>();
  Vex::Ptr<MrouteLib::OifSetRegistry> registry = Vex::make<MrouteLib::OifSetRegistry>();
  Vex::Ptr<RecordingAsyncMrouteHelper> helper = Vex::make<RecordingAsyncMrouteHelper>();
  std::shared_ptr<Vex::CaptureTraceSink> capture = std::make_shared<Vex::CaptureTraceSink>();
  Vex::Ptr<Fal::Mroute::AsyncMrouteSwitch> sw;
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrf6Config = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hwStatus =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hw6Status =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<IntfVlanId::Table> intfVlanIdTable = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = Vex::make<Interface::EthIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Vex::make<Interface::AllIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir = Vex::make<Interface::AllIntfStatusLocalDir>();
  Vex::Ptr<Fal::Mroute::AsyncMrouteSwitchSm> sm;
  std::map<MrouteLib::RouteHandle, SetPtr> bound;
  MrouteLib::AsyncSwitchChip::XactPtr lastXact;

 private:
  Vex::TraceHandle& trace_ = Vex::traceHandle("FalMroute");
  std::uint16_t traceLevels_;
};

}  // namespace FalTest
