#pragma once
// An IPv4 or IPv6 prefix: an address masked to its length. Text form
// "10.0.0.0/8", "ff00::/8"; an address without "/len" is a host prefix.
#include <compare>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/net/IpGenAddr.h"
#include "platform/vex/Export.h"

namespace Netcore {

class FALMROUTE_EXPORT IpGenPrefix {
 public:
  IpGenPrefix() = default;
  IpGenPrefix(IpGenAddr const& addr, unsigned len);
  // Parses "addr/len" or "addr"; throws Vex::ParseError naming the text.
  explicit IpGenPrefix(std::string_view text);

  IpGenAddr const& address() const { return addr_; }
  unsigned len() const { return len_; }
  AddressFamily af() const { return addr_.af(); }
  bool isMulticast() const { return addr_.isMulticast(); }
  bool isHost() const { return len_ == maxLen(af()); }
  // Whether a lies in the prefix; the empty prefix (length 0) holds every address.
  bool contains(IpGenAddr const& a) const { return len_ == 0 || (a.af() == af() && a.masked(len_) == addr_); }
  std::string stringValue() const;
  static unsigned maxLen(AddressFamily af) { return af == AddressFamily::ipv6 ? 128 : af == AddressFamily::ipv4 ? 32 : 0; }

  friend bool operator==(IpGenPrefix const&, IpGenPrefix const&) = default;
  friend std::strong_ordering operator<=>(IpGenPrefix const& a, IpGenPrefix const& b) {
    if (auto c = a.addr_ <=> b.addr_; c != 0) return c;
    return a.len_ <=> b.len_;
  }
  std::size_t hash() const;

 private:
  IpGenAddr addr_;
  std::uint8_t len_ = 0;
};

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, IpGenPrefix const& p);
FALMROUTE_EXPORT void strepOut(std::ostream& os, IpGenPrefix const& p);
FALMROUTE_EXPORT IpGenPrefix strepIn(Vex::StrepParser& p, Vex::StrepTag<IpGenPrefix>);

}  // namespace Netcore

template <>
struct FALMROUTE_EXPORT std::hash<Netcore::IpGenPrefix> {
  std::size_t operator()(Netcore::IpGenPrefix const& p) const noexcept { return p.hash(); }
};
