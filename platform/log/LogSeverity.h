#pragma once
// The severity of a structured log message, on the usual 0 (most severe) to
// 7 scale; a message's definition says where it stands.
#include <cstdint>
#include <ostream>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Log {

enum class Severity : std::uint8_t {
  emergency = 0,
  alert = 1,
  critical = 2,
  error = 3,
  warning = 4,
  notice = 5,
  info = 6,
  debug = 7,
};

}  // namespace Log

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Log::Severity> {
  static EnumType const& type();
};
}  // namespace Vex

namespace Log {
inline std::ostream& operator<<(std::ostream& os, Severity s) { return os << Vex::enumName(s); }
}  // namespace Log
