#pragma once
#include <cstdint>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Netcore {

enum class AddressFamily : std::uint8_t { ipunknown = 0, ipv4 = 1, ipv6 = 2 };

}  // namespace Netcore

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Netcore::AddressFamily> {
  static EnumType const& type();
};
}  // namespace Vex

namespace Netcore {
inline std::ostream& operator<<(std::ostream& os, AddressFamily af) { return os << Vex::enumName(af); }
}  // namespace Netcore
