#pragma once
// What a hit-bit request asks the owner of the hit-bit cache to do.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/vex/Enum.h"
#include "platform/vex/Export.h"

namespace Fal {

enum class MrouteHitAction : std::uint8_t { read = 1, clear = 2 };

// The enumeration services, all by lookup in the registered type "Fal::MrouteHitAction".
// Both instance functions throw Vex::RangeException for a value or name without a literal.
FALMROUTE_EXPORT MrouteHitAction MrouteHitActionInstance(std::int64_t value);
FALMROUTE_EXPORT MrouteHitAction MrouteHitActionInstance(std::string_view name);
FALMROUTE_EXPORT std::string stringValue(MrouteHitAction a);
FALMROUTE_EXPORT std::string valueToStrep(MrouteHitAction a);
// The literal at a position of the declaration order (0 is read).
FALMROUTE_EXPORT MrouteHitAction sequenceToValue(std::size_t sequence);
FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, MrouteHitAction a);

}  // namespace Fal

namespace Vex {
template <>
struct FALMROUTE_EXPORT EnumTraits<Fal::MrouteHitAction> {
  static EnumType const& type();
};
}  // namespace Vex
