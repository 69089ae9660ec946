#pragma once
// The operational status of an interface.
//
// Unscoped on purpose: code may write either Interface::intfOperDown or
// Interface::IntfOperStatus::intfOperDown. The values are the ones other
// agents publish, so they never change.
#include <cstdint>
#include <ostream>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Interface {

enum IntfOperStatus : std::uint8_t {
  intfOperUp = 1,
  intfOperDown = 2,
  intfOperTesting = 3,
  intfOperUnknown = 4,
  intfOperDormant = 5,
  intfOperNotPresent = 6,
  intfOperLowerLayerDown = 7,
};

// Prints the literal name ("intfOperDown"), or the number for a value without one.
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, IntfOperStatus s);

}  // namespace Interface

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Interface::IntfOperStatus> {
  // Registered as "Interface::IntfOperStatus".
  static EnumType const& type();
};
}  // namespace Vex
