#pragma once
// One chip of the synchronous flavour for the benches: the entities the agent
// hands Fal::MrouteSwitch and Fal::MrouteSwitchSm on virtual time, an OIF-set
// registry standing in for the route programmer's, and one of two hook
// objects:
// - NoopHooks: every hook does the least it can (sequential replication
//   indexes and route handles, nothing stored), so a figure is the library's
//   own cost;
// - MeteredChip: the reference chip (a software model of the hardware tables),
//   with the heap meter paused inside its hooks so that the library's heap
//   figure leaves the chip's tables out.
// The helpers play the route programmer as it drives a chip: allocate the set,
// program the route with it, re-point the route at it.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bench/HeapMeter.h"
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
#include "platform/vex/ActivityManager.h"
#include "sim/ReferenceChip.h"
#include "sync/MrouteSwitch.h"
#include "sync/MrouteSwitchSm.h"

namespace FalBench {

using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
using MrouteLib::OifSetPtr;
using MrouteLib::PortVlan;
using MrouteLib::PortVlanSet;
using MrouteLib::RouteHandle;

class NoopHooks : public FalHelper::MrouteSmHelper {
 public:
  NoopHooks() : MrouteSmHelper("noop-hooks") {}

  // What every counter read and every hit-bit read answers.
  std::int64_t counterAmount = 0;
  bool hit = false;

  void mrouteInit(bool) override {}
  void handleMulticastRouting(bool) override {}
  void verifyMulticastRouting(bool) override {}
  void mrouteSwitchInit(std::uint32_t, bool) override {}
  std::uint32_t doAllocateMtableOifSet(std::uint32_t, std::uint32_t index, OifSetPtr) override { return indexFor(index); }
  std::uint32_t doReallocateMtableOifSet(std::uint32_t, std::uint32_t index, OifSetPtr) override { return indexFor(index); }
  void handleFreeMtableOifSet(std::uint32_t, Vex::Ptr<Fal::MtableOifSet> const&) override {}
  bool doCreateMrouteCounter(std::uint16_t, IpGenRouteKey const&) override { return true; }
  std::int64_t doReadMrouteCounter(IpGenRouteKey const&) override { return counterAmount; }
  RouteHandle doAllocateMroute(std::uint32_t, std::uint16_t, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool,
                               std::uint32_t, bool, std::uint16_t) override {
    return RouteHandle(nextHandle_++);
  }
  RouteHandle doAllocateMrouteNoRpf(std::uint32_t, std::uint16_t, IpGenRouteKey const&, bool, std::uint32_t, bool,
                                    std::uint16_t) override {
    return RouteHandle(nextHandle_++);
  }
  void doSetMtableOifSet(std::uint32_t, std::uint16_t, RouteHandle, Vex::Ptr<Fal::Route const> const&,
                         std::uint32_t) override {}
  void doDeleteMroute(std::uint32_t, std::uint16_t, RouteHandle, Vex::Ptr<Fal::Route const> const&) override {}
  void doDeleteMrouteBoundary(std::uint32_t, std::uint16_t, RouteHandle, Vex::Ptr<Fal::Boundary const> const&) override {}
  bool mrouteFull(std::uint32_t) override { return false; }
  bool mrouteBoundaryFull(std::uint32_t) override { return false; }
  bool mtableFull(std::uint32_t) override { return false; }
  bool mrouteHitBit(std::uint32_t, std::uint16_t, IpGenRouteKey const&, Bridging::VlanIdOrNone, bool) override { return hit; }
  void verifyMroute(std::uint32_t, std::uint16_t, Vex::Ptr<Fal::Route const> const&) override {}
  void verifyMrouteBoundary(std::uint32_t, std::uint16_t, Vex::Ptr<Fal::Boundary const> const&) override {}

 private:
  // A fresh index for 0 and 0xFFFFFFFE; an in-place rewrite keeps its index.
  std::uint32_t indexFor(std::uint32_t index) {
    return index == 0 || index == FalSim::ReferenceChip::kFreshIndex ? nextIndex_++ : index;
  }
  std::uint32_t nextIndex_ = 1;
  std::uint32_t nextHandle_ = 1;
};

// The reference chip, its allocations kept out of the heap meter.
class MeteredChip : public FalSim::ReferenceChip {
 public:
  explicit MeteredChip(Capacity capacity) : ReferenceChip("reference-chip", 2, capacity) {}

  std::uint32_t doAllocateMtableOifSet(std::uint32_t s, std::uint32_t i, OifSetPtr o) override {
    HeapMeter::Pause p;
    return ReferenceChip::doAllocateMtableOifSet(s, i, std::move(o));
  }
  void handleFreeMtableOifSet(std::uint32_t s, Vex::Ptr<Fal::MtableOifSet> const& o) override {
    HeapMeter::Pause p;
    ReferenceChip::handleFreeMtableOifSet(s, o);
  }
  RouteHandle doAllocateMroute(std::uint32_t s, std::uint16_t v, IpGenRouteKey const& k, Bridging::VlanIdOrNone a, bool b,
                               std::uint32_t i, bool f, std::uint16_t r) override {
    HeapMeter::Pause p;
    return ReferenceChip::doAllocateMroute(s, v, k, a, b, i, f, r);
  }
  void doSetMtableOifSet(std::uint32_t s, std::uint16_t v, RouteHandle h, Vex::Ptr<Fal::Route const> const& r,
                         std::uint32_t i) override {
    HeapMeter::Pause p;
    ReferenceChip::doSetMtableOifSet(s, v, h, r, i);
  }
  void doDeleteMroute(std::uint32_t s, std::uint16_t v, RouteHandle h, Vex::Ptr<Fal::Route const> const& r) override {
    HeapMeter::Pause p;
    ReferenceChip::doDeleteMroute(s, v, h, r);
  }
  bool mrouteFull(std::uint32_t s) override {
    HeapMeter::Pause p;
    return ReferenceChip::mrouteFull(s);
  }
  bool mtableFull(std::uint32_t s) override {
    HeapMeter::Pause p;
    return ReferenceChip::mtableFull(s);
  }
};

enum class Hooks : int { noop = 0, chip = 1 };

inline char const* hooksName(Hooks h) { return h == Hooks::noop ? "noop" : "chip"; }

// Outputs distinct for every i below 4M: three (port, VLAN) outputs. With
// frr, traffic arrives on Ethernet2000, and when it fails the outputs on the
// protected port give way to one backup.
inline PortVlanSet outputs(std::uint32_t i, bool frr = false) {
  PortVlanSet s;
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1 + i % 1000), Bridging::VlanIdOrNone(1 + (i / 1000) % 4094)));
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1001 + i % 7), Bridging::VlanIdOrNone(10)));
  s.portVlanIs(PortVlan(Netcore::IntfId::ethernet(1020), Bridging::VlanIdOrNone(1 + i % 4094)));
  if (frr) {
    s.currentIifIs(Netcore::IntfId::ethernet(2000));
    s.intfIdIs(Netcore::IntfId::ethernet(1 + i % 1000));
    s.portVlanFrrIs(PortVlan(Netcore::IntfId::ethernet(1030 + i % 3), Bridging::VlanIdOrNone(30)));
  }
  return s;
}

// (10.a.b.c, 239.x.y.z): distinct for every i below 16M.
inline IpGenRouteKey routeKey(std::uint32_t i) {
  return IpGenRouteKey(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0x0A000000U + i), 32),
                       Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xEF000000U + (i * 7U) % 0x1000000U), 32));
}

class SyncWorld {
 public:
  static constexpr std::uint32_t kSwitchId = 1;
  static constexpr Vex::Seconds kStart = 100.0;
  static constexpr std::uint32_t kVlan = 10;

  // capacity: routes and replication entries the reference chip must hold.
  SyncWorld(Hooks hooks, std::size_t capacity) : hooks_(hooks) {
    if (hooks == Hooks::noop) {
      helper = Vex::make<NoopHooks>();
    } else {
      FalSim::ReferenceChipCapacity c;
      c.routes = capacity;
      c.replicationEntries = capacity;
      helper = Vex::make<MeteredChip>(c);
    }
    l3Status->vrfIs(vrf, 7);
    acsd->initializedIs(true);
    // Built empty with the meter on, so its own collections count from the start.
    HeapMeter::Scope meter;
    std::int64_t const before = HeapMeter::liveBytes();
    sw = Fal::mrouteSwitchFactory(kSwitchId, acsd, l3Status, helper, ipStatus, hwStatus, hw6Status);
    sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(kSwitchId, acsd, l3Status, sw, intfVlanIdTable, vrfConfig, vrf6Config,
                                               hwStatus, hw6Status, helper, nullptr, nullptr, ethIntfStatusDir,
                                               allIntfStatusDir, allIntfStatusLocalDir, false, nullptr, nullptr);
    fixedBytes_ = HeapMeter::liveBytes() - before;
  }
  ~SyncWorld() {
    sm = nullptr;
    sw = nullptr;
  }
  SyncWorld(SyncWorld const&) = delete;
  SyncWorld& operator=(SyncWorld const&) = delete;

  Hooks hooks() const { return hooks_; }
  // Heap bytes of an empty switch and its state machine.
  std::int64_t fixedBytes() const { return fixedBytes_; }

  // The chip's set for o, as the route programmer takes it.
  Vex::Ptr<Fal::MtableOifSet> allocSet(OifSetPtr const& o) {
    sw->doAllocateMtableOifSet(o);
    auto set = Vex::ptrCast<Fal::MtableOifSet>(sw->oifSetResult());
    sw->oifSetResultIs(nullptr);
    return set;
  }
  // Programs a route replicating to o; the invalid handle when refused.
  RouteHandle addRoute(IpGenRouteKey const& key, OifSetPtr const& o) {
    Vex::Ptr<Fal::MtableOifSet> set = allocSet(o);
    sw->doAllocateRoute(key, Bridging::VlanIdOrNone(kVlan), false, set, false, false, 0, vrf);
    RouteHandle const h = sw->handleResult();
    if (!h.isNull() && set) sw->doSetMtableOifSet(h, set);
    return h;
  }
  void deleteRoute(RouteHandle h) { sw->doDeleteRoute(h); }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(kStart)};
  L3::VrfName const vrf{"red"};
  Vex::Ptr<Fal::VerifyData> verifyData = Vex::make<Fal::VerifyData>(false);
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>(verifyData);
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrf6Config = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hwStatus =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> hw6Status =
      Vex::make<Routing::Multicast::Fib::Hardware::Status>(Netcore::AddressFamily::ipv6);
  Vex::Ptr<Ip::Status> ipStatus = Vex::make<Ip::Status>();
  Vex::Ptr<IntfVlanId::Table> intfVlanIdTable = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = Vex::make<Interface::EthIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Vex::make<Interface::AllIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir = Vex::make<Interface::AllIntfStatusLocalDir>();
  Vex::Ptr<MrouteLib::OifSetRegistry> registry = Vex::make<MrouteLib::OifSetRegistry>();
  Vex::Ptr<FalHelper::MrouteSmHelper> helper;
  Vex::Ptr<Fal::MrouteSwitch> sw;
  Vex::Ptr<Fal::MrouteSwitchSm> sm;

 private:
  Hooks hooks_;
  std::int64_t fixedBytes_ = 0;
};

}  // namespace FalBench
