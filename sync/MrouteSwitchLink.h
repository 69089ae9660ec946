#pragma once
// Fal::MrouteSwitchLink: the one object through which every OIF set of a chip
// reaches its Fal::MrouteSwitch. The switch clears it when it goes away, which
// detaches all its sets at once; a set still held elsewhere then finds no
// switch to hand its entry back to. Sharing one link costs each set a pointer
// and the switch no per-set bookkeeping.
#include "platform/vex/Export.h"
#include "platform/vex/Ptr.h"

namespace Fal {

class MrouteSwitch;

class FALMROUTE_EXPORT MrouteSwitchLink : public Vex::RefCounted {
 public:
  explicit MrouteSwitchLink(MrouteSwitch* mrouteSwitch) : mrouteSwitch_(mrouteSwitch) {}

  // Null once the switch has gone.
  MrouteSwitch* mrouteSwitch() const { return mrouteSwitch_; }
  void mrouteSwitchDel() { mrouteSwitch_ = nullptr; }

 private:
  MrouteSwitch* mrouteSwitch_;
};

}  // namespace Fal
