#include "recovery/RecoverySm.h"

#include <utility>

#include "platform/net/IntfId.h"
#include "platform/vex/Trace.h"

namespace Fal::Mroute {
namespace {

Vex::TraceHandle& recoveryTrace() {
  static Vex::TraceHandle& handle = Vex::traceHandle("FalMrouteRecovery");
  return handle;
}

}  // namespace

#define FAL_RECOVERY_TRACE(level, expr) VEX_TRACE(recoveryTrace(), level, "FalMrouteRecoverySm", expr)

RecoverySm::RecoverySm(Vex::Ptr<L3Status const> falL3Status, Vex::Ptr<IntfVlanId::Table const> intfVlanIdTable,
                       Vex::Ptr<VrfEnabledStatus const> vrfEnabledStatus, Vex::Ptr<HwStatus> mfibHwStatus)
    : falL3Status_(std::move(falL3Status)),
      intfVlanIdTable_(std::move(intfVlanIdTable)),
      vrfEnabledStatus_(std::move(vrfEnabledStatus)),
      mfibHwStatus_(std::move(mfibHwStatus)) {}

void RecoverySm::doAddMfibHwVrfStatus() {
  FAL_RECOVERY_TRACE(8, "doAddMfibHwVrfStatus");
  for (auto it = vrfEnabledStatus_->vrfIterator(); !it.done(); ++it) mfibHwStatus_->vrfStatusIs(it.key());
}

void RecoverySm::doAddMfibHwStatusEntry(VrfId vrfId, IpGenRouteKey const& key, Bridging::VlanIdOrNone vlan) {
  FAL_RECOVERY_TRACE(8, "doAddMfibHwStatusEntry");
  auto const vrfName = falL3Status_->vrfIdToName(vrfId);
  if (!vrfName) {
    FAL_RECOVERY_TRACE(7, "doAddMfibHwStatusEntry" << "( " << key.source() << ", " << key.group() << ", " << vlan
                                                   << " ), Vrf does not exist");
    return;
  }
  // Resolved before the status is touched, so a bad VLAN leaves no half-made route behind.
  Netcore::IntfId const acceptingIntf = vlan.isNone() ? Netcore::IntfId() : intfVlanIdTable_->vlanIdToIntfId(vlan.vlanId());
  auto const vrfStatus = mfibHwStatus_->vrfStatusIs(*vrfName);
  vrfStatus->routeIs(key)->acceptingIntfIdIs(acceptingIntf);
  FAL_RECOVERY_TRACE(7, "doAddMfibHwStatusEntry" << "( " << key.source() << ", " << key.group() << ", " << vlan
                                                 << " ), Added route to VRF " << *vrfName);
}

Vex::Ptr<RecoverySm> recoverySmFactory(Vex::Ptr<L3Status const> const& falL3Status,
                                       Vex::Ptr<IntfVlanId::Table const> const& intfVlanIdTable,
                                       Vex::Ptr<Routing::Multicast::Fib::VrfEnabledStatus const> const& vrfEnabledStatus,
                                       Vex::Ptr<Routing::Multicast::Fib::Hardware::Status> const& mfibHwStatus) {
  return Vex::make<RecoverySm>(falL3Status, intfVlanIdTable, vrfEnabledStatus, mfibHwStatus);
}

}  // namespace Fal::Mroute
