#pragma once
// Platform: the entities a forwarding agent owns and hands the library: its
// common data, L3 status, multicast FIB configuration and status, IP and
// interface status. In a real agent other agents write them (the routing
// protocol, the interface manager); here the example writes them itself.
//
// One VRF, "default" (id 0), with multicast routing enabled; Ethernet1 to
// Ethernet5 up, and Ethernet1 carrying VLAN 100, on which the routes accept
// their traffic.
#include "platform/fal/FalCommonSmData.h"
#include "platform/fal/L3MulticastRequest.h"
#include "platform/fal/L3Status.h"
#include "platform/fal/VerifyData.h"
#include "platform/fib/VrfConfig.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "platform/fib/hardware/Status.h"
#include "platform/fib/routing/RouteStatus.h"
#include "platform/intf/AllIntfStatusDir.h"
#include "platform/intf/AllIntfStatusLocalDir.h"
#include "platform/intf/EthIntfStatusDir.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/intf/IpStatus.h"
#include "platform/types/VrfName.h"

namespace ToyChip {

struct Platform {
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  static inline L3::VrfName const kVrf{"default"};

  Platform() {
    ipStatus->ipv4RoutingEnabledIs(true);
    ipStatus->ipv6RoutingEnabledIs(true);
    l3Status->vrfIs(kVrf, 0);
    l3Status->mrouteZombieEnabledIs(true);
    vrfEnabledStatus->vrfIs(kVrf);
    vrfConfig->configIs(kVrf);
    vrf6Config->configIs(kVrf);
    routeStatus->vrfStatusIs(kVrf, 0);
    intfVlanIdTable->mappingIs(Netcore::IntfId::vlan(100), Bridging::VlanId(100));
    for (std::uint32_t n = 1; n <= 5; ++n) {
      auto const eth = Netcore::IntfId::ethernet(n);
      ethIntfStatusDir->intfStatusIs(eth)->operStatusIs(Interface::intfOperUp);
      allIntfStatusDir->intfStatusIs(eth)->operStatusIs(Interface::intfOperUp);
      allIntfStatusLocalDir->intfStatusIs(eth)->operStatusIs(Interface::intfOperUp);
    }
    hwStatus->enabledIs(true);
    hw6Status->enabledIs(true);
    acsd->initializedIs(true);
  }

  Vex::Ptr<Fal::VerifyData> verifyData = Vex::make<Fal::VerifyData>(false);
  Vex::Ptr<Fal::FalCommonSmData> acsd = Vex::make<Fal::FalCommonSmData>(verifyData);
  Vex::Ptr<Fal::L3Status> l3Status = Vex::make<Fal::L3Status>();
  Vex::Ptr<Fal::L3MulticastRequest> l3MulticastRequest = Vex::make<Fal::L3MulticastRequest>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrfConfig = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::VrfConfig> vrf6Config = Vex::make<Routing::Multicast::Fib::VrfConfig>();
  Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus> vrfEnabledStatus =
      Vex::make<Routing::Multicast::Fib::VrfEnabledStatus>();
  Vex::Ptr<Ip::Status> ipStatus = Vex::make<Ip::Status>();
  Vex::Ptr<IntfVlanId::Table> intfVlanIdTable = Vex::make<IntfVlanId::Table>();
  Vex::Ptr<Interface::EthIntfStatusDir> ethIntfStatusDir = Vex::make<Interface::EthIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir = Vex::make<Interface::AllIntfStatusDir>();
  Vex::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir = Vex::make<Interface::AllIntfStatusLocalDir>();
  Vex::Ptr<HwStatus> hwStatus = Vex::make<HwStatus>(Netcore::AddressFamily::ipv4);
  Vex::Ptr<HwStatus> hw6Status = Vex::make<HwStatus>(Netcore::AddressFamily::ipv6);
  // The chip's VRFs and their ids, which the asynchronous switch reads.
  Vex::Ptr<Routing::Hardware::RouteStatus> routeStatus = Vex::make<Routing::Hardware::RouteStatus>();
};

}  // namespace ToyChip
