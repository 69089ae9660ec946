#pragma once
// The kind of a multicast route key: (*, G), (S, G) or the wildcard key that
// stands for every route of a family.
#include <cstdint>
#include <ostream>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Routing::Multicast::Fib {

enum class RouteKeyType : std::uint8_t {
  invalid = 0,
  ipv4StarG = 1,
  ipv4SG = 2,
  ipv4Wildcard = 3,
  ipv6StarG = 4,
  ipv6SG = 5,
  ipv6Wildcard = 6,
};

}  // namespace Routing::Multicast::Fib

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Routing::Multicast::Fib::RouteKeyType> {
  static EnumType const& type();
};
}  // namespace Vex

namespace Routing::Multicast::Fib {
inline std::ostream& operator<<(std::ostream& os, RouteKeyType t) { return os << Vex::enumName(t); }
}  // namespace Routing::Multicast::Fib
