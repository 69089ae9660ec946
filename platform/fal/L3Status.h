#pragma once
// The agent's layer-3 status as far as multicast routing is concerned, and
// the map between VRF names and VRF ids.
//
// The VRF maps are read for every route programmed, so both directions are
// flat hash maps kept in step by vrfIs and vrfDel: a name has one id and an
// id one name.
#include <cstddef>
#include <cstdint>
#include <optional>

#include "absl/container/flat_hash_map.h"
#include "platform/types/VrfId.h"
#include "platform/types/VrfName.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace Fal {

class FALMROUTE_EXPORT L3Status final : public Vex::Entity {
 public:
  using VrfNameToIdColl = absl::flat_hash_map<L3::VrfName, VrfId>;
  using VrfIdToNameColl = absl::flat_hash_map<VrfId, L3::VrfName>;

  class Notifiee : public Vex::NotifieeOf<L3Status> {
   public:
    virtual void onMulticastRoutingEnabled() {}
    virtual void onNumTimesMcastRoutingEnabled() {}
    virtual void onMrouteZombieEnabled() {}
    virtual void onWaitForRoutingDisabledRefCnt() {}
    virtual void onVrfNameToId(L3::VrfName const&) {}
    virtual void onVrfIdToName(VrfId const&) {}
  };

  bool multicastRoutingEnabled() const { return multicastRoutingEnabled_; }
  void multicastRoutingEnabledIs(bool v);

  std::uint32_t numTimesMcastRoutingEnabled() const { return numTimesMcastRoutingEnabled_; }
  void numTimesMcastRoutingEnabledIs(std::uint32_t v);
  void numTimesMcastRoutingEnabledInc(std::uint32_t n = 1) { numTimesMcastRoutingEnabledIs(numTimesMcastRoutingEnabled_ + n); }

  // Whether a freed OIF set still in hardware is kept as a zombie for reuse.
  bool mrouteZombieEnabled() const { return mrouteZombieEnabled_; }
  void mrouteZombieEnabledIs(bool v);

  // Chips that emptied their route table while routing is being disabled.
  std::uint32_t waitForRoutingDisabledRefCnt() const { return waitForRoutingDisabledRefCnt_; }
  void waitForRoutingDisabledRefCntIs(std::uint32_t v);
  void waitForRoutingDisabledRefCntInc(std::uint32_t n = 1) { waitForRoutingDisabledRefCntIs(waitForRoutingDisabledRefCnt_ + n); }

  std::optional<VrfId> vrfNameToId(L3::VrfName const& name) const {
    auto it = vrfNameToId_.find(name);
    return it == vrfNameToId_.end() ? std::nullopt : std::optional<VrfId>(it->second);
  }
  std::optional<L3::VrfName> vrfIdToName(VrfId id) const {
    auto it = vrfIdToName_.find(id);
    return it == vrfIdToName_.end() ? std::nullopt : std::optional<L3::VrfName>(it->second);
  }
  // Pairs name with id in both maps, replacing any earlier pairing of either.
  void vrfIs(L3::VrfName name, VrfId id);
  void vrfDel(L3::VrfName const& name);
  void vrfDelAll();
  std::size_t vrfNameToIdSize() const { return vrfNameToId_.size(); }
  // Moves whenever a pairing is made or undone, so a reader may keep the
  // answer of a lookup for as long as it has not moved.
  std::uint64_t vrfMapVersion() const { return vrfMapVersion_; }
  // Unordered; for range-for only.
  VrfNameToIdColl const& vrfNameToIdColl() const { return vrfNameToId_; }
  VrfIdToNameColl const& vrfIdToNameColl() const { return vrfIdToName_; }

 private:
  bool multicastRoutingEnabled_ = false;
  std::uint32_t numTimesMcastRoutingEnabled_ = 0;
  bool mrouteZombieEnabled_ = true;
  std::uint32_t waitForRoutingDisabledRefCnt_ = 0;
  std::uint64_t vrfMapVersion_ = 0;
  VrfNameToIdColl vrfNameToId_;
  VrfIdToNameColl vrfIdToName_;
};

}  // namespace Fal
