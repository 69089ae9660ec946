#pragma once
// What a multicast route counter counts.
#include <cstdint>
#include <ostream>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Routing::Multicast::Fib {

enum class CounterMode : std::uint8_t { packets = 0, bytes = 1, packetsAndBytes = 2 };

}  // namespace Routing::Multicast::Fib

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Routing::Multicast::Fib::CounterMode> {
  static EnumType const& type();
};
}  // namespace Vex

namespace Routing::Multicast::Fib {
inline std::ostream& operator<<(std::ostream& os, CounterMode m) { return os << Vex::enumName(m); }
}  // namespace Routing::Multicast::Fib
