#pragma once
// An IPv4 or IPv6 address. Compact (17 bytes), totally ordered (IPv4 before
// IPv6, then by bytes), hashable; text form "10.1.2.3" or "ff02::1", and
// "none" for the unknown-family address, so that it too reads back as itself.
#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/net/AddressFamily.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Netcore {

class FALMROUTE_EXPORT IpGenAddr {
 public:
  static constexpr std::string_view kNoneText = "none";

  IpGenAddr() = default;  // the unknown-family, all-zero address
  static IpGenAddr v4(std::uint32_t hostOrder);
  static IpGenAddr v6(std::array<std::uint8_t, 16> const& bytes);
  // Parses "a.b.c.d", an IPv6 text or "none"; throws Vex::ParseError naming the text.
  explicit IpGenAddr(std::string_view text);

  AddressFamily af() const { return af_; }
  bool isV4() const { return af_ == AddressFamily::ipv4; }
  bool isV6() const { return af_ == AddressFamily::ipv6; }
  // The IPv4 address in host order (0 for other families).
  std::uint32_t v4Addr() const;
  std::array<std::uint8_t, 16> const& bytes() const { return bytes_; }
  bool isMulticast() const;
  bool isZero() const;
  std::string stringValue() const;

  // Keeps the first len bits, zeroes the rest.
  IpGenAddr masked(unsigned len) const;

  // Two words at a time: the array's own comparison is a call to memcmp, and
  // route keys, two addresses each, are compared at every table lookup.
  friend bool operator==(IpGenAddr const& a, IpGenAddr const& b) noexcept {
    std::uint64_t aw[2];
    std::uint64_t bw[2];
    std::memcpy(aw, a.bytes_.data(), sizeof aw);
    std::memcpy(bw, b.bytes_.data(), sizeof bw);
    return ((aw[0] ^ bw[0]) | (aw[1] ^ bw[1])) == 0 && a.af_ == b.af_;
  }
  friend std::strong_ordering operator<=>(IpGenAddr const& a, IpGenAddr const& b) {
    if (auto c = a.af_ <=> b.af_; c != 0) return c;
    return a.bytes_ <=> b.bytes_;
  }
  std::size_t hash() const;

 private:
  std::array<std::uint8_t, 16> bytes_{};  // IPv4 in the first 4 bytes, network order
  AddressFamily af_ = AddressFamily::ipunknown;
};

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, IpGenAddr const& a);
FALMROUTE_EXPORT void strepOut(std::ostream& os, IpGenAddr const& a);
FALMROUTE_EXPORT IpGenAddr strepIn(Vex::StrepParser& p, Vex::StrepTag<IpGenAddr>);

}  // namespace Netcore

template <>
struct FALMROUTE_EXPORT std::hash<Netcore::IpGenAddr> {
  std::size_t operator()(Netcore::IpGenAddr const& a) const noexcept { return a.hash(); }
};
