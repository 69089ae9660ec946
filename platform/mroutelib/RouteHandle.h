#pragma once
// The opaque hardware handle of a programmed route, as a chip hands it back.
//
// All ones (0xFFFFFFFF) is the invalid handle: a failed allocation returns it
// and a default-constructed handle holds it, so "no handle yet" needs no
// separate flag. Prints and parses as a plain decimal number.
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <utility>

#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace MrouteLib {

class FALMROUTE_EXPORT RouteHandle {
 public:
  static constexpr std::uint32_t kInvalidValue = 0xFFFFFFFF;

  constexpr RouteHandle() = default;
  constexpr explicit RouteHandle(std::uint32_t value) : value_(value) {}
  static constexpr RouteHandle invalid() { return RouteHandle(); }

  constexpr std::uint32_t value() const { return value_; }
  constexpr bool isNull() const { return value_ == kInvalidValue; }

  friend constexpr bool operator==(RouteHandle, RouteHandle) = default;
  friend constexpr auto operator<=>(RouteHandle, RouteHandle) = default;
  template <typename H>
  friend H AbslHashValue(H h, RouteHandle r) {
    return H::combine(std::move(h), r.value_);
  }

 private:
  std::uint32_t value_ = kInvalidValue;
};

inline constexpr RouteHandle invalidRouteHandle = RouteHandle::invalid();

inline std::ostream& operator<<(std::ostream& os, RouteHandle r) { return os << r.value(); }
inline void strepOut(std::ostream& os, RouteHandle r) { os << r.value(); }
inline RouteHandle strepIn(Vex::StrepParser& p, Vex::StrepTag<RouteHandle>) {
  return RouteHandle(Vex::parseFrom<std::uint32_t>(p));
}

}  // namespace MrouteLib

template <>
struct FALMROUTE_EXPORT std::hash<MrouteLib::RouteHandle> {
  std::size_t operator()(MrouteLib::RouteHandle r) const noexcept { return std::hash<std::uint32_t>()(r.value()); }
};
