#pragma once
// A VLAN or none: 0 means no VLAN, 1 to 4094 a real one. Above 4094 throws.
#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>

#include "platform/types/VlanId.h"
#include "platform/vex/Export.h"

namespace Bridging {

class FALMROUTE_EXPORT VlanIdOrNone {
 public:
  VlanIdOrNone() = default;
  explicit VlanIdOrNone(std::uint32_t v) : value_(check(v)) {}
  VlanIdOrNone(VlanId v) : value_(v.value()) {}  // NOLINT(google-explicit-constructor)
  std::uint16_t value() const { return value_; }
  bool isNone() const { return value_ == 0; }
  // The real VLAN; throws "VlanId::value < 1 or > 4094 not allowed" for none.
  VlanId vlanId() const { return VlanId(value_); }
  friend bool operator==(VlanIdOrNone, VlanIdOrNone) = default;
  friend auto operator<=>(VlanIdOrNone, VlanIdOrNone) = default;
  std::size_t hash() const { return std::hash<std::uint16_t>()(value_); }

 private:
  static std::uint16_t check(std::uint32_t v) {
    if (v > 4094) throw Vex::RangeException("VlanIdOrNone::value > 4094 not allowed");
    return static_cast<std::uint16_t>(v);
  }
  std::uint16_t value_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, VlanIdOrNone v) { return os << v.value(); }
inline void strepOut(std::ostream& os, VlanIdOrNone v) { os << v.value(); }
inline VlanIdOrNone strepIn(Vex::StrepParser& p, Vex::StrepTag<VlanIdOrNone>) {
  return VlanIdOrNone(Vex::parseFrom<std::uint32_t>(p));
}

}  // namespace Bridging

template <>
struct FALMROUTE_EXPORT std::hash<Bridging::VlanIdOrNone> {
  std::size_t operator()(Bridging::VlanIdOrNone v) const noexcept { return v.hash(); }
};
