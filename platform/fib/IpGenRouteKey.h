#pragma once
// A multicast route key: (source prefix, group prefix).
//
// A source that is the zero prefix of length 0 makes a (*, G) key. The
// wildcard key of a family (0.0.0.0/0, 224.0.0.0/4) or (::/0, ff00::/8) stands
// for every route of that family; counters use it for all-route counting.
// The default key has both prefixes empty and is of kind invalid.
#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <utility>

#include "platform/fib/RouteKeyType.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/vex/Export.h"
#include "platform/vex/Strep.h"

namespace Routing::Multicast::Fib {

class FALMROUTE_EXPORT IpGenRouteKey {
 public:
  IpGenRouteKey() = default;
  IpGenRouteKey(Netcore::IpGenPrefix source, Netcore::IpGenPrefix group)
      : source_(std::move(source)), group_(std::move(group)) {}

  static IpGenRouteKey wildcard();
  static IpGenRouteKey wildcard6();
  // The wildcard key of af (IPv4 unless af is IPv6).
  static IpGenRouteKey wildcardOf(Netcore::AddressFamily af) {
    return af == Netcore::AddressFamily::ipv6 ? wildcard6() : wildcard();
  }

  Netcore::IpGenPrefix const& source() const { return source_; }
  Netcore::IpGenPrefix const& group() const { return group_; }
  // The family of the group; ipunknown for the default key.
  Netcore::AddressFamily af() const { return group_.af(); }
  RouteKeyType kind() const;
  bool isWildcard() const;
  bool isStarG() const { return source_.len() == 0 && source_.address().isZero() && !isWildcard(); }
  bool isNull() const { return *this == IpGenRouteKey(); }

  // "(10.0.0.1, 239.1.1.1)"; a (*, G) source prints as "*", and a prefix that
  // is not a host prefix prints with its length ("(*, 224.0.0.0/4)").
  std::string pretty() const;
  std::size_t hash() const;

  friend bool operator==(IpGenRouteKey const&, IpGenRouteKey const&) = default;
  // By source, then by group.
  friend std::strong_ordering operator<=>(IpGenRouteKey const&, IpGenRouteKey const&) = default;
  template <typename H>
  friend H AbslHashValue(H h, IpGenRouteKey const& k) {
    return H::combine(std::move(h), k.hash());
  }

 private:
  Netcore::IpGenPrefix source_;
  Netcore::IpGenPrefix group_;
};

FALMROUTE_EXPORT std::ostream& operator<<(std::ostream& os, IpGenRouteKey const& k);
// "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'source': 10.0.0.1/32, 'group': 239.1.1.1/32})"
FALMROUTE_EXPORT void strepOut(std::ostream& os, IpGenRouteKey const& k);
FALMROUTE_EXPORT IpGenRouteKey strepIn(Vex::StrepParser& p, Vex::StrepTag<IpGenRouteKey>);

}  // namespace Routing::Multicast::Fib

template <>
struct FALMROUTE_EXPORT std::hash<Routing::Multicast::Fib::IpGenRouteKey> {
  std::size_t operator()(Routing::Multicast::Fib::IpGenRouteKey const& k) const noexcept { return k.hash(); }
};
