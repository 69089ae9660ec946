#pragma once
// A VRF's name: at most 100 bytes.
#include <compare>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/vex/Assert.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace L3 {

class FALMROUTE_EXPORT VrfName {
 public:
  static constexpr std::size_t maxLength = 100;
  VrfName() = default;
  VrfName(std::string_view s) : value_(check(s)) {}  // NOLINT(google-explicit-constructor)
  VrfName(char const* s) : VrfName(std::string_view(s)) {}  // NOLINT(google-explicit-constructor)
  std::string const& stringValue() const { return value_; }
  friend bool operator==(VrfName const&, VrfName const&) = default;
  friend auto operator<=>(VrfName const&, VrfName const&) = default;

 private:
  static std::string check(std::string_view s) {
    if (s.size() > maxLength) throw Vex::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
    return std::string(s);
  }
  std::string value_;
};

inline std::ostream& operator<<(std::ostream& os, VrfName const& v) { return os << v.stringValue(); }
inline void strepOut(std::ostream& os, VrfName const& v) { Vex::strepOut(os, v.stringValue()); }
inline VrfName strepIn(Vex::StrepParser& p, Vex::StrepTag<VrfName>) { return VrfName(Vex::parseFrom<std::string>(p)); }

}  // namespace L3

template <>
struct FALMROUTE_EXPORT std::hash<L3::VrfName> {
  std::size_t operator()(L3::VrfName const& v) const noexcept { return std::hash<std::string>()(v.stringValue()); }
};
