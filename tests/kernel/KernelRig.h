#pragma once
// KernelRig: one synchronous agent chip on the kernel chip in a namespace of
// its own, wired as a chip agent wires it: the platform entities, a
// Fal::MrouteSwitch and its Fal::MrouteSwitchSm on virtual time, the route
// programmer with its registry, and a KernelChip over VethPorts; a
// PacketProbe sends real packets and reports where their copies came out.
// "FalMroute" and "FalMrouteKernel" traces are captured in memory.
//
// Making one needs the privilege to make a network namespace;
// KernelRig::unavailable() says why not, for GTEST_SKIP.
#include <algorithm>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kernel/KernelChip.h"
#include "kernel/KernelNetns.h"
#include "kernel/PacketProbe.h"
#include "kernel/VethPorts.h"
#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3MulticastRequest.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfOperStatus.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/intf/IpStatus.h"
#include "platform/mroutelib/OifSetRegistry.h"
#include "platform/mroutelib/RouteProgrammer.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/vex/ActivityManager.h"
#include "platform/vex/Trace.h"
#include "sync/MrouteSwitch.h"
#include "sync/MrouteSwitchSm.h"

namespace FalKernelTest {

class KernelRig {
 public:
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  using VrfConfig = Routing::Multicast::Fib::VrfConfig;
  static constexpr std::uint32_t kSwitchId = 0;
  static constexpr std::uint16_t kRedVrfId = 5;

  static std::optional<std::string> unavailable() {
    static std::optional<std::string> const why = FalKernel::KernelNetns::unavailable();
    return why;
  }

  explicit KernelRig(std::uint32_t ethernetPorts = 40) {
    for (auto* handle : {&Vex::traceHandle("FalMroute"), &Vex::traceHandle("FalMrouteKernel")}) {
      saved_.emplace_back(handle, handle->levels());
      handle->enable(0, 2);
    }
    Vex::traceSinkAdd(capture);
    ipStatus->ipv4RoutingEnabledIs(true);
    ipStatus->ipv6RoutingEnabledIs(true);
    l3Status->vrfIs(L3::VrfName("default"), 0);
    l3Status->vrfIs(L3::VrfName("red"), kRedVrfId);
    l3Status->mrouteZombieEnabledIs(true);
    for (std::uint32_t n = 1; n <= ethernetPorts; ++n) {
      ethIntfStatusDir->intfStatusIs(eth(n))->operStatusIs(Interface::intfOperUp);
    }
    hwStatus->enabledIs(true);
    hw6Status->enabledIs(true);
    acsd->initializedIs(true);
    chip = Vex::make<FalKernel::KernelChip>("FalKernel::KernelChip", kSwitchId, ports);
    sw = Fal::mrouteSwitchFactory(kSwitchId, acsd, l3Status, chip, ipStatus, hwStatus, hw6Status);
    sm = Fal::MrouteSwitchSm::MrouteSwitchSmIs(kSwitchId, acsd, l3Status, sw, intfVlanIdTable, vrfConfig, vrf6Config,
                                               hwStatus, hw6Status, chip, nullptr, nullptr, ethIntfStatusDir,
                                               allIntfStatusDir, allIntfStatusLocalDir, false, nullptr, nullptr);
    sm->vex_L3MulticastRequestInIs(l3MulticastRequest);
    programmer = Vex::make<MrouteLib::RouteProgrammer>(registry, hwStatus, hw6Status);
    programmer->switchChipIs(sw);
  }
  ~KernelRig() {
    am.runUntil(am.now());
    programmer = nullptr;
    sm = nullptr;
    sw = nullptr;
    Vex::traceSinkDel(capture);
    for (auto& [handle, levels] : saved_) handle->levelsIs(levels);
  }
  KernelRig(KernelRig const&) = delete;
  KernelRig& operator=(KernelRig const&) = delete;

  static Netcore::IntfId eth(std::uint32_t n) { return Netcore::IntfId::ethernet(n); }
  static IpGenRouteKey key(char const* source, char const* group) {
    return IpGenRouteKey(Netcore::IpGenPrefix(source), Netcore::IpGenPrefix(group));
  }
  static MrouteLib::PortVlanSet outputs(std::initializer_list<char const*> portVlans) {
    MrouteLib::PortVlanSet pvs;
    for (char const* pv : portVlans) pvs.portVlanIs(MrouteLib::PortVlan(pv));
    return pvs;
  }
  static MrouteLib::DesiredRoute route(char const* vrf, IpGenRouteKey const& k, std::uint16_t vlan,
                                       MrouteLib::PortVlanSet outs) {
    MrouteLib::DesiredRoute r(L3::VrfName(vrf), k);
    r.acceptingVlanIs(Bridging::VlanIdOrNone(vlan));
    r.acceptingIntfIdIs(Netcore::IntfId::vlan(vlan));
    r.outputsIs(std::move(outs));
    return r;
  }

  // One batch, as the route owner hands it over.
  void program(std::initializer_list<MrouteLib::DesiredRoute> routes) {
    for (auto const& r : routes) programmer->routeIs(r);
    programmer->commit();
  }
  void remove(char const* vrf, IpGenRouteKey const& k) {
    programmer->routeDel(L3::VrfName(vrf), k);
    programmer->commit();
  }
  std::uint32_t failure(char const* vrf, IpGenRouteKey const& k) const {
    return programmer->failureReason(sw.get(), L3::VrfName(vrf), k);
  }
  void interfaceDown(std::uint32_t n) {
    ethIntfStatusDir->intfStatus(eth(n))->operStatusIs(Interface::intfOperDown);
    am.runUntil(am.now());
  }

  // Sends one packet (source -> group) into the input of VLAN vlan of the
  // VRF and answers the outputs its copies came out of, sorted, waiting for
  // `expected` copies at most a second.
  std::vector<std::string> copies(std::uint16_t vrfId, std::uint16_t vlan, char const* source, char const* group,
                                  std::size_t expected) {
    ports.inputIfindex(vrfId, Bridging::VlanIdOrNone(vlan));
    auto const* in = ports.input(vrfId, Bridging::VlanIdOrNone(vlan));
    if (!in) return {"no input device"};
    std::uint64_t const token = ++token_;
    if (int const err = probe.send(in->peerIfindex, Netcore::IpGenAddr(source), Netcore::IpGenAddr(group), token)) {
      return {"send failed: errno " + std::to_string(err)};
    }
    std::vector<std::string> out;
    for (auto const& c : probe.collect(expected, [&](int ifindex) { return ports.outputOfPeer(ifindex).has_value(); })) {
      if (c.token == token) out.push_back(ports.outputOfPeer(c.ifindex)->stringValue());
    }
    std::sort(out.begin(), out.end());
    return out;
  }

  Vex::ActivityManager am{std::make_unique<Vex::VirtualTimeSource>(100.0)};
  FalKernel::KernelNetns netns;
  FalKernel::VethPorts ports{netns};
  FalKernel::PacketProbe probe{netns};
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
  std::shared_ptr<Vex::CaptureTraceSink> capture = std::make_shared<Vex::CaptureTraceSink>();
  Vex::Ptr<FalKernel::KernelChip> chip;
  Vex::Ptr<Fal::MrouteSwitch> sw;
  Vex::Ptr<Fal::MrouteSwitchSm> sm;
  Vex::Ptr<MrouteLib::RouteProgrammer> programmer;

 private:
  std::vector<std::pair<Vex::TraceHandle*, std::uint16_t>> saved_;
  std::uint64_t token_ = 0;
};

}  // namespace FalKernelTest
