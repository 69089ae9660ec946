#pragma once
// Fal::Mroute::RecoverySm: rebuilds the multicast FIB hardware status after an
// agent restart, while the chips keep forwarding.
//
// Until the hardware status describes what the chips already hold, the route
// programmer would treat routes still in hardware as absent and program them
// again. The chip-specific agent therefore reads its hardware tables back at
// start-up and reports them here: first doAddMfibHwVrfStatus() once, then
// doAddMfibHwStatusEntry() for every route found. The machine has no
// reactors; it acts only when called.
//
// Traces go to the handle "FalMrouteRecovery".
#include "platform/fal/L3Status.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/fib/VrfEnabledStatus.h"
#include "platform/fib/hardware/Status.h"
#include "platform/intf/IntfVlanIdTable.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/types/VrfId.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace Fal::Mroute {

class FALMROUTE_EXPORT RecoverySm : public Vex::Entity {
 public:
  using HwStatus = Routing::Multicast::Fib::Hardware::Status;
  using VrfEnabledStatus = Routing::Multicast::Fib::VrfEnabledStatus;
  using IpGenRouteKey = Routing::Multicast::Fib::IpGenRouteKey;

  // All four are held for the machine's life; the first three are only read.
  RecoverySm(Vex::Ptr<L3Status const> falL3Status, Vex::Ptr<IntfVlanId::Table const> intfVlanIdTable,
             Vex::Ptr<VrfEnabledStatus const> vrfEnabledStatus, Vex::Ptr<HwStatus> mfibHwStatus);

  // VRF id to VRF name.
  Vex::Ptr<L3Status const> const& falL3Status() const { return falL3Status_; }
  // VLAN to VLAN interface, for the accepting interface of a route.
  Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable() const { return intfVlanIdTable_; }
  // The VRFs with multicast routing enabled.
  Vex::Ptr<VrfEnabledStatus const> const& vrfEnabledStatus() const { return vrfEnabledStatus_; }
  // What is rebuilt.
  Vex::Ptr<HwStatus> const& mfibHwStatus() const { return mfibHwStatus_; }

  // Gives every VRF of the enabled-VRF collection its hardware VRF status, in
  // collection order; VRF statuses that already exist are kept as they are.
  void doAddMfibHwVrfStatus();

  // Records one route read back from hardware: its VRF status (created when
  // absent, so a VRF that is not enabled still gets one), its route status,
  // and its accepting interface, which is the VLAN's interface or the empty
  // interface when the route has no VLAN. Adding a route again only moves its
  // accepting interface. A VRF id the L3 status does not know is traced and
  // ignored. A VLAN outside 1..4094 throws Vex::RangeException
  // ("VlanId::value < 1 or > 4094 not allowed") before anything changes.
  void doAddMfibHwStatusEntry(VrfId vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan);

 private:
  Vex::Ptr<L3Status const> const falL3Status_;
  Vex::Ptr<IntfVlanId::Table const> const intfVlanIdTable_;
  Vex::Ptr<VrfEnabledStatus const> const vrfEnabledStatus_;
  Vex::Ptr<HwStatus> const mfibHwStatus_;
};

FALMROUTE_EXPORT Vex::Ptr<RecoverySm> recoverySmFactory(Vex::Ptr<L3Status const> const& falL3Status,
                                       Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                                       Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> const& vrfEnabledStatus,
                                       Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus);

}  // namespace Fal::Mroute
