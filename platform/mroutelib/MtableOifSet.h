#pragma once
// The platform base of a chip's programmed OIF set (a multicast replication
// table entry). The route programmer hands these between the calls of a
// SwitchChip (doAllocateMtableOifSet's result goes to doAllocateRoute and
// doSetMtableOifSet) without looking inside; each chip's library derives its
// own record from it.
#include "platform/vex/Entity.h"
#include "platform/vex/Export.h"

namespace MrouteLib {

class FALMROUTE_EXPORT MtableOifSet : public Vex::Entity {
 public:
  MtableOifSet() = default;

 protected:
  ~MtableOifSet() override = default;
};

}  // namespace MrouteLib
