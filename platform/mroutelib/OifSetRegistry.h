#pragma once
// The table of live OifSets: one shared OifSet per distinct PortVlanSet.
//
// Lookups hash the content once and probe a flat hash set of the sets by
// their stored hash, comparing contents only on a hash match. The registry
// holds its sets by plain pointer, so it keeps none alive: a set removes
// itself when its last reference goes. The registry may be held by Vex::Ptr
// (Vex::make) or be a plain member of its owner; if it goes first, the sets
// still alive lose their owner (OifSet::owner() becomes null).
#include <cstddef>

#include "absl/container/flat_hash_set.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/mroutelib/PortVlanSet.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace MrouteLib {

class FALMROUTE_EXPORT OifSetRegistry : public Vex::RefCounted {
 public:
  OifSetRegistry() = default;
  ~OifSetRegistry() override;

  // The OifSet with this content, made when there is none.
  OifSetPtr oifSetIs(PortVlanSet const& portVlanSet);
  OifSetPtr oifSetIs(PortVlanSet&& portVlanSet);
  // The OifSet with this content, or null.
  OifSetPtr oifSet(PortVlanSet const& portVlanSet) const;
  std::size_t size() const { return sets_.size(); }

 private:
  friend class OifSet;
  struct Probe {
    PortVlanSet const* content;
    std::size_t hash;
  };
  struct SetHash {
    using is_transparent = void;
    std::size_t operator()(OifSet const* s) const { return s->hash(); }
    std::size_t operator()(Probe const& p) const { return p.hash; }
  };
  struct SetEq {
    using is_transparent = void;
    bool operator()(OifSet const* a, OifSet const* b) const { return a == b; }
    bool operator()(OifSet const* s, Probe const& p) const {
      return s->hash() == p.hash && s->portVlanSet() == *p.content;
    }
    bool operator()(Probe const& p, OifSet const* s) const { return (*this)(s, p); }
  };
  template <class Content>
  OifSetPtr findOrMake(Content&& portVlanSet);
  void oifSetDel(OifSet const* s) { sets_.erase(s); }

  absl::flat_hash_set<OifSet const*, SetHash, SetEq> sets_;
};

}  // namespace MrouteLib
