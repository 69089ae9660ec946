#pragma once
// One shared, immutable OIF set: the outputs every route with the same
// PortVlanSet uses.
//
// OifSets are made only by an OifSetRegistry, which hands out one OifSet per
// distinct content, so two routes with equal outputs hold the same object and
// sets are compared by pointer (OifSetPtr). The registry does not keep its
// sets alive: when the last reference goes, the set leaves its registry and is
// deleted, and a later request for the same content makes a new object.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include "platform/mroutelib/PortVlanSet.h"
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace MrouteLib {

class OifSetRegistry;

class FALMROUTE_EXPORT OifSet final : public Vex::Entity {
 public:
  static constexpr std::uint32_t kInvalidMcastId = 0xFFFFFFFF;

  PortVlanSet const& portVlanSet() const { return portVlanSet_; }
  // The content hash; equal to portVlanSet().hash() and savedHash().
  std::size_t hash() const { return hash_; }
  // The registry the set belongs to. Not owned: null once the registry has
  // gone before the set.
  OifSetRegistry* owner() const { return owner_; }

  // A multicast id the route programmer suggests for the set's group
  // (kInvalidMcastId when none). Bookkeeping beside the content, so it may be
  // changed on a shared set; it plays no part in identity.
  std::uint32_t mcastIdHint() const { return mcastIdHint_; }
  void mcastIdHintIs(std::uint32_t id) const { mcastIdHint_ = id; }

  std::string pretty() const { return portVlanSet_.pretty(); }

  // portVlanSet().reachesNoPort(), kept beside the reference count so that a
  // chip asked for this set's entry reads one cache line of it.
  bool reachesNoPort() const { return reachesNoPort_; }

  // One chip library's record of this set (the entry that programs it on
  // that chip), kept here so that the chip finds it from the set the route
  // programmer hands it without a table lookup. Bookkeeping beside the
  // content, like mcastIdHint: it plays no part in identity and may change on
  // a shared set. There is one slot: the first owner to store an entry holds
  // it until it clears it; another owner keeps its records elsewhere.
  // Owners are identified by an address that stays theirs while any record
  // of theirs is stored.
  void const* entryOwner() const { return entryOwner_; }
  // owner's entry, or null when owner does not hold the slot.
  void* entry(void const* owner) const { return owner == entryOwner_ ? entry_ : nullptr; }
  // Stores owner's entry; false (nothing stored) when another owner holds the slot.
  bool entryIs(void const* owner, void* entry) const;
  // Frees the slot if owner holds it with this entry.
  void entryDel(void const* owner, void const* entry) const;

  // Unique in the process and rising in the order sets are made, whatever
  // their registry: a defined order for collections keyed by set (the same
  // run makes its sets in the same order, where addresses differ).
  std::uint64_t serial() const { return serial_; }
  // Orders sets by serial.
  struct BySerial {
    bool operator()(OifSet const* a, OifSet const* b) const { return a->serial_ < b->serial_; }
  };

 private:
  friend class OifSetRegistry;
  OifSet(OifSetRegistry* owner, PortVlanSet portVlanSet);
  ~OifSet() override;
  // Leaves the registry as soon as nothing holds the set, before deletion,
  // so a lookup can never hand out a set that is going away.
  void zeroReferencesIs() override;
  void leaveOwner() const;

  // The first cache line holds what a lookup reads first: the reference
  // count, the hash (a registry's first test), and what a chip's lookup of
  // its entry needs (the entry slot, reachesNoPort).
  bool reachesNoPort_;
  mutable std::uint32_t mcastIdHint_ = kInvalidMcastId;
  std::size_t hash_;
  mutable void const* entryOwner_ = nullptr;
  mutable void* entry_ = nullptr;
  mutable OifSetRegistry* owner_;
  std::uint64_t serial_;
  PortVlanSet portVlanSet_;
};

using OifSetPtr = Vex::Ptr<OifSet const>;

inline std::ostream& operator<<(std::ostream& os, OifSet const& s) { return os << s.portVlanSet(); }

}  // namespace MrouteLib
