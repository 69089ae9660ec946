#include "platform/fal/L3Status.h"

#include <utility>
#include <vector>

namespace Fal {

void L3Status::multicastRoutingEnabledIs(bool v) {
  if (v == multicastRoutingEnabled_) return;
  multicastRoutingEnabled_ = v;
  notify(&Notifiee::onMulticastRoutingEnabled);
}

void L3Status::numTimesMcastRoutingEnabledIs(std::uint32_t v) {
  if (v == numTimesMcastRoutingEnabled_) return;
  numTimesMcastRoutingEnabled_ = v;
  notify(&Notifiee::onNumTimesMcastRoutingEnabled);
}

void L3Status::mrouteZombieEnabledIs(bool v) {
  if (v == mrouteZombieEnabled_) return;
  mrouteZombieEnabled_ = v;
  notify(&Notifiee::onMrouteZombieEnabled);
}

void L3Status::waitForRoutingDisabledRefCntIs(std::uint32_t v) {
  if (v == waitForRoutingDisabledRefCnt_) return;
  waitForRoutingDisabledRefCnt_ = v;
  notify(&Notifiee::onWaitForRoutingDisabledRefCnt);
}

void L3Status::vrfIs(L3::VrfName name, VrfId id) {
  auto byName = vrfNameToId_.find(name);
  if (byName != vrfNameToId_.end() && byName->second == id) return;

  // The id leaves the name that had it; the name leaves its old id.
  std::optional<L3::VrfName> otherName;
  if (auto byId = vrfIdToName_.find(id); byId != vrfIdToName_.end()) {
    otherName = byId->second;
    vrfNameToId_.erase(*otherName);
  }
  std::optional<VrfId> oldId;
  if (byName = vrfNameToId_.find(name); byName != vrfNameToId_.end()) {
    oldId = byName->second;
    vrfIdToName_.erase(*oldId);
  }

  vrfNameToId_[name] = id;
  vrfIdToName_[id] = name;
  ++vrfMapVersion_;

  // Both maps are consistent before anyone is told.
  if (otherName) notify(&Notifiee::onVrfNameToId, *otherName);
  if (oldId) notify(&Notifiee::onVrfIdToName, *oldId);
  notify(&Notifiee::onVrfNameToId, name);
  notify(&Notifiee::onVrfIdToName, id);
}

void L3Status::vrfDel(L3::VrfName const& name) {
  auto byName = vrfNameToId_.find(name);
  if (byName == vrfNameToId_.end()) return;
  VrfId const id = byName->second;
  L3::VrfName const gone = byName->first;  // name may refer into the map
  vrfNameToId_.erase(byName);
  vrfIdToName_.erase(id);
  ++vrfMapVersion_;
  notify(&Notifiee::onVrfNameToId, gone);
  notify(&Notifiee::onVrfIdToName, id);
}

void L3Status::vrfDelAll() {
  std::vector<std::pair<L3::VrfName, VrfId>> gone(vrfNameToId_.begin(), vrfNameToId_.end());
  vrfNameToId_.clear();
  vrfIdToName_.clear();
  ++vrfMapVersion_;
  for (auto const& [name, id] : gone) {
    notify(&Notifiee::onVrfNameToId, name);
    notify(&Notifiee::onVrfIdToName, id);
  }
}

}  // namespace Fal
