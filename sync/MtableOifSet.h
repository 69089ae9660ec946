#pragma once
// Fal::MtableOifSet: one programmed entry of a chip's multicast replication
// table, shared by every route of the chip with the same MrouteLib::OifSet.
//
// Reference counted: routes hold it through Route::mtableOifSet, the switch's
// zombie collection holds it while it is a zombie. When the last reference
// goes, doCleanup hands it to its switch's handleFreeMtableOifSet, which
// either keeps it as a zombie (storing a reference revives it) or frees its
// hardware entry.
#include <cstdint>

#include "model/ZombieKey.h"
#include "platform/mroutelib/MtableOifSet.h"
#include "platform/mroutelib/OifSet.h"
#include "platform/vex/Export.h"
#include "sync/MrouteSwitchLink.h"

namespace Fal {

class MrouteSwitch;

class FALMROUTE_EXPORT MtableOifSet : public MrouteLib::MtableOifSet {
 public:
  static constexpr std::uint32_t kInvalidOifSetIndex = 0xFFFFFFFF;

  MtableOifSet(Vex::Ptr<MrouteLib::OifSet const> oifSet, bool toCpu, MrouteSwitch* mrouteSwitch);
  ~MtableOifSet() override;

  Vex::Ptr<MrouteLib::OifSet const> const& oifSet() const { return oifSet_; }
  bool toCpu() const { return toCpu_; }
  // Not owned: the switch detaches its sets when it goes away (then null).
  MrouteSwitch* mrouteSwitch() const { return link_ ? link_->mrouteSwitch() : nullptr; }
  void mrouteSwitchIs(MrouteSwitch* s);
  std::uint32_t oifSetIndex() const { return oifSetIndex_; }
  void oifSetIndexIs(std::uint32_t i) { oifSetIndex_ = i; }
  // Set once its hardware entry is released.
  bool deleted() const { return deleted_; }
  void deletedIs(bool v) { deleted_ = v; }
  // Waiting to be rewritten in place after a fast-reroute switch; a route with
  // the same outputs gets a fresh set meanwhile.
  bool dirty() const { return dirty_; }
  void dirtyIs(bool v) { dirty_ = v; }
  bool usedInHw() const { return usedInHw_; }
  void usedInHwIs(bool v) { usedInHw_ = v; }
  // The zombie key: the set's index and a finite expiry while the set is a
  // zombie, the default key otherwise. Only the expiry is stored: a zombie's
  // key always names the set's own index.
  ZombieKey zombie() const { return isZombie() ? ZombieKey(oifSetIndex_, zombieExpiry_) : ZombieKey(); }
  void zombieIs(ZombieKey const& k);
  bool isZombie() const { return Vex::isFinite(zombieExpiry_); }

  void doCleanup();

 protected:
  void zeroReferencesIs() override { doCleanup(); }

 private:
  // One per programmed entry, so kept to 56 bytes: the flags share a byte
  // (in the tail of the entity base), the index follows it.
  bool toCpu_ : 1;
  bool deleted_ : 1 = false;
  bool dirty_ : 1 = false;
  bool usedInHw_ : 1 = true;
  std::uint32_t oifSetIndex_ = kInvalidOifSetIndex;
  Vex::Ptr<MrouteLib::OifSet const> oifSet_;
  Vex::Ptr<MrouteSwitchLink> link_;  // the switch's, shared by all its sets
  Vex::Seconds zombieExpiry_ = Vex::kNever;
};

FALMROUTE_EXPORT Vex::Ptr<MtableOifSet> mtableOifSetFactory(Vex::Ptr<MrouteLib::OifSet const> const& oifSet, bool toCpu,
                                           MrouteSwitch* mrouteSwitch);

inline std::uint32_t invalidOifSetIndex() { return MtableOifSet::kInvalidOifSetIndex; }

}  // namespace Fal
