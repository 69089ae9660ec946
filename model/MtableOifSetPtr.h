#pragma once
// A non-owning pointer to a programmed OIF set: the value of the map from a
// platform OIF set to the set that programs it. Equality compares pointers.
#include <ostream>

#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Fal {

class MtableOifSet;

struct FALMROUTE_EXPORT MtableOifSetPtr {
  MtableOifSet* ptr = nullptr;  // not owned

  MtableOifSetPtr() = default;
  explicit MtableOifSetPtr(MtableOifSet* p) : ptr(p) {}
  MtableOifSet* operator->() const { return ptr; }
  MtableOifSet* get() const { return ptr; }
  explicit operator bool() const { return ptr != nullptr; }
  friend bool operator==(MtableOifSetPtr, MtableOifSetPtr) = default;
};

FALMROUTE_EXPORT void strepOut(std::ostream& os, MtableOifSetPtr p);
FALMROUTE_EXPORT MtableOifSetPtr strepIn(Vex::StrepParser& p, Vex::StrepTag<MtableOifSetPtr>);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, MtableOifSetPtr p);

}  // namespace Fal
