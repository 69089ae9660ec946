#include "platform/intf/IntfOperStatus.h"

namespace Vex {

EnumType const& EnumTraits<Interface::IntfOperStatus>::type() {
  static EnumType const t("Interface::IntfOperStatus",
                          {{Interface::intfOperUp, "intfOperUp"},
                           {Interface::intfOperDown, "intfOperDown"},
                           {Interface::intfOperTesting, "intfOperTesting"},
                           {Interface::intfOperUnknown, "intfOperUnknown"},
                           {Interface::intfOperDormant, "intfOperDormant"},
                           {Interface::intfOperNotPresent, "intfOperNotPresent"},
                           {Interface::intfOperLowerLayerDown, "intfOperLowerLayerDown"}});
  return t;
}

namespace {
// Registers the type by name when the library is loaded, not on first print.
[[maybe_unused]] EnumType const& registered = EnumTraits<Interface::IntfOperStatus>::type();
}  // namespace

}  // namespace Vex

namespace Interface {

std::ostream& operator<<(std::ostream& os, IntfOperStatus s) { return os << Vex::enumName(s); }

}  // namespace Interface
