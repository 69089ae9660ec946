#pragma once
// The one-to-one map between VLAN interfaces and their VLANs.
//
// Looked up for every route the aging review polls, so both directions are
// flat hash maps. A VLAN belongs to at most one interface and an interface
// has at most one VLAN: mapping an interface or a VLAN again replaces the
// old pairing on both sides. onIntfId(intfId) is told for every interface
// whose VLAN changed, including one that lost its VLAN to another interface.
#include <cstddef>

#include "absl/container/flat_hash_map.h"
#include "platform/net/IntfId.h"
#include "platform/types/VlanId.h"
#include "platform/types/VlanIdOrNone.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace IntfVlanId {

class FALMROUTE_EXPORT Table final : public Vex::Entity {
 public:
  using IntfIdToVlanIdColl = absl::flat_hash_map<Netcore::IntfId, Bridging::VlanId>;

  class Notifiee : public Vex::NotifieeOf<Table> {
   public:
    virtual void onIntfId(Netcore::IntfId const&) {}
  };

  // The interface's VLAN; none (0) when the interface has no mapping.
  Bridging::VlanIdOrNone intfIdToVlanId(Netcore::IntfId intfId) const {
    auto it = intfIdToVlanId_.find(intfId);
    return it == intfIdToVlanId_.end() ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(it->second);
  }
  // The VLAN's interface; the empty interface id when the VLAN has no mapping.
  Netcore::IntfId vlanIdToIntfId(Bridging::VlanId vlanId) const {
    auto it = vlanIdToIntfId_.find(vlanId);
    return it == vlanIdToIntfId_.end() ? Netcore::IntfId() : it->second;
  }

  void mappingIs(Netcore::IntfId intfId, Bridging::VlanId vlanId);
  void mappingDel(Netcore::IntfId intfId);
  void mappingDelAll();
  std::size_t mappingSize() const { return intfIdToVlanId_.size(); }
  // Unordered; for range-for only.
  IntfIdToVlanIdColl const& intfIdToVlanIdColl() const { return intfIdToVlanId_; }

 private:
  IntfIdToVlanIdColl intfIdToVlanId_;
  absl::flat_hash_map<Bridging::VlanId, Netcore::IntfId> vlanIdToIntfId_;
};

}  // namespace IntfVlanId
