#pragma once
// An interface identifier: a 32-bit value with a text form ("Ethernet3",
// "Vlan100", "Port-Channel5", "Cpu"). The empty id (value 0, text "") names no
// interface.
#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Netcore {

class FALMROUTE_EXPORT IntfId {
 public:
  enum class Kind : std::uint8_t { none = 0, ethernet = 1, vlan = 2, portChannel = 3, cpu = 4 };

  IntfId() = default;
  IntfId(Kind kind, std::uint32_t number) : value_((static_cast<std::uint32_t>(kind) << 24) | (number & 0xFFFFFF)) {}
  // Parses the text form; throws Vex::ParseError naming the text.
  explicit IntfId(std::string_view text);
  static IntfId ethernet(std::uint32_t n) { return IntfId(Kind::ethernet, n); }
  static IntfId vlan(std::uint32_t n) { return IntfId(Kind::vlan, n); }
  static IntfId fromValue(std::uint32_t v) {
    IntfId i;
    i.value_ = v;
    return i;
  }

  std::uint32_t value() const { return value_; }
  Kind kind() const { return static_cast<Kind>(value_ >> 24); }
  std::uint32_t number() const { return value_ & 0xFFFFFF; }
  bool isEmpty() const { return value_ == 0; }
  std::string stringValue() const;

  friend bool operator==(IntfId, IntfId) = default;
  friend auto operator<=>(IntfId, IntfId) = default;

 private:
  std::uint32_t value_ = 0;
};

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, IntfId i);
FALMROUTE_EXPORT void strepOut(std::ostream& os, IntfId i);
FALMROUTE_EXPORT IntfId strepIn(Vex::StrepParser& p, Vex::StrepTag<IntfId>);

}  // namespace Netcore

template <>
struct FALMROUTE_EXPORT std::hash<Netcore::IntfId> {
  std::size_t operator()(Netcore::IntfId i) const noexcept { return std::hash<std::uint32_t>()(i.value()); }
};
