#include "platform/intf/IntfVlanIdTable.h"

#include <vector>

namespace IntfVlanId {

void Table::mappingIs(Netcore::IntfId intfId, Bridging::VlanId vlanId) {
  auto fwd = intfIdToVlanId_.find(intfId);
  if (fwd != intfIdToVlanId_.end() && fwd->second == vlanId) return;

  // The VLAN moves away from the interface that had it.
  Netcore::IntfId loser;
  if (auto rev = vlanIdToIntfId_.find(vlanId); rev != vlanIdToIntfId_.end()) {
    loser = rev->second;
    intfIdToVlanId_.erase(loser);
  }
  // The interface gives up its old VLAN.
  if (fwd = intfIdToVlanId_.find(intfId); fwd != intfIdToVlanId_.end()) vlanIdToIntfId_.erase(fwd->second);

  intfIdToVlanId_[intfId] = vlanId;
  vlanIdToIntfId_[vlanId] = intfId;

  // Both maps are consistent before anyone is told.
  if (!loser.isEmpty()) notify(&Notifiee::onIntfId, loser);
  notify(&Notifiee::onIntfId, intfId);
}

void Table::mappingDel(Netcore::IntfId intfId) {
  auto fwd = intfIdToVlanId_.find(intfId);
  if (fwd == intfIdToVlanId_.end()) return;
  vlanIdToIntfId_.erase(fwd->second);
  intfIdToVlanId_.erase(fwd);
  notify(&Notifiee::onIntfId, intfId);
}

void Table::mappingDelAll() {
  std::vector<Netcore::IntfId> gone;
  gone.reserve(intfIdToVlanId_.size());
  for (auto const& [intfId, vlanId] : intfIdToVlanId_) gone.push_back(intfId);
  intfIdToVlanId_.clear();
  vlanIdToIntfId_.clear();
  for (auto intfId : gone) notify(&Notifiee::onIntfId, intfId);
}

}  // namespace IntfVlanId
