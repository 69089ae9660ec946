#pragma once
// A real VLAN, 1 to 4094. Construction outside that range throws.
#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>

#include "platform/vex/Assert.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Bridging {

class FALMROUTE_EXPORT VlanId {
 public:
  VlanId() = default;  // VLAN 1, the default VLAN
  explicit VlanId(std::uint32_t v) : value_(check(v)) {}
  std::uint16_t value() const { return value_; }
  friend bool operator==(VlanId, VlanId) = default;
  friend auto operator<=>(VlanId, VlanId) = default;

 private:
  static std::uint16_t check(std::uint32_t v) {
    if (v < 1 || v > 4094) throw Vex::RangeException("VlanId::value < 1 or > 4094 not allowed");
    return static_cast<std::uint16_t>(v);
  }
  std::uint16_t value_ = 1;
};

inline std::ostream& operator<<(std::ostream& os, VlanId v) { return os << v.value(); }
inline void strepOut(std::ostream& os, VlanId v) { os << v.value(); }
inline VlanId strepIn(Vex::StrepParser& p, Vex::StrepTag<VlanId>) { return VlanId(Vex::parseFrom<std::uint32_t>(p)); }

}  // namespace Bridging

template <>
struct FALMROUTE_EXPORT std::hash<Bridging::VlanId> {
  std::size_t operator()(Bridging::VlanId v) const noexcept { return v.value(); }
};
