#pragma once
// FalHelper::MrouteXactType: which kind of transaction a failure question is
// about: one that allocated or updated a multicast group (an OIF set), or one
// that programmed a route's ingress entry. Prints and parses as its name.
#include <cstdint>
#include <ostream>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace FalHelper {

enum class MrouteXactType : std::uint8_t { oifSet = 0, ingress = 1 };

}  // namespace FalHelper

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<FalHelper::MrouteXactType> {
  static EnumType const& type();
};
}  // namespace Vex

namespace FalHelper {
inline std::ostream& operator<<(std::ostream& os, MrouteXactType t) { return os << Vex::enumName(t); }
}  // namespace FalHelper
