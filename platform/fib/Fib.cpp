// Value types of the multicast FIB model and their registrations.
#include <sstream>

#include "platform/fib/Counter.h"
#include "platform/fib/CounterMode.h"
#include "platform/fib/IpGenRouteKey.h"
#include "platform/fib/RouteKeyType.h"
#include "platform/vex/HashColl.h"

namespace Vex {

EnumType const& EnumTraits<Routing::Multicast::Fib::RouteKeyType>::type() {
  static EnumType const t("Routing::Multicast::Fib::RouteKeyType", {{0, "invalid"},
                                                                    {1, "ipv4StarG"},
                                                                    {2, "ipv4SG"},
                                                                    {3, "ipv4Wildcard"},
                                                                    {4, "ipv6StarG"},
                                                                    {5, "ipv6SG"},
                                                                    {6, "ipv6Wildcard"}});
  return t;
}

EnumType const& EnumTraits<Routing::Multicast::Fib::CounterMode>::type() {
  static EnumType const t("Routing::Multicast::Fib::CounterMode", {{0, "packets"}, {1, "bytes"}, {2, "packetsAndBytes"}});
  return t;
}

}  // namespace Vex

namespace Routing::Multicast::Fib {

namespace {
// Registers the enumerations by name when the library loads, so that lookups
// by type name work before the first value is printed.
[[maybe_unused]] auto const& kRouteKeyTypeRegistered = Vex::EnumTraits<RouteKeyType>::type();
[[maybe_unused]] auto const& kCounterModeRegistered = Vex::EnumTraits<CounterMode>::type();

constexpr char kRouteKeyHead[] = "Value('Routing::Multicast::Fib::IpGenRouteKey', ** {'source': ";
constexpr char kCounterHead[] = "Value('Routing::Multicast::Fib::Counter', ** {'routeKey': ";

void prettyPrefix(std::string& out, Netcore::IpGenPrefix const& p) {
  out += p.isHost() ? p.address().stringValue() : p.stringValue();
}
}  // namespace

namespace {
IpGenRouteKey const& wildcard4Key() {
  static IpGenRouteKey const k(Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0), 0),
                               Netcore::IpGenPrefix(Netcore::IpGenAddr::v4(0xE0000000U), 4));
  return k;
}

IpGenRouteKey const& wildcard6Key() {
  static IpGenRouteKey const k = [] {
    std::array<std::uint8_t, 16> ff{};
    ff[0] = 0xFF;
    return IpGenRouteKey(Netcore::IpGenPrefix(Netcore::IpGenAddr::v6({}), 0),
                         Netcore::IpGenPrefix(Netcore::IpGenAddr::v6(ff), 8));
  }();
  return k;
}
}  // namespace

IpGenRouteKey IpGenRouteKey::wildcard() { return wildcard4Key(); }
IpGenRouteKey IpGenRouteKey::wildcard6() { return wildcard6Key(); }

bool IpGenRouteKey::isWildcard() const {
  switch (af()) {
    case Netcore::AddressFamily::ipv4:
      return *this == wildcard4Key();
    case Netcore::AddressFamily::ipv6:
      return *this == wildcard6Key();
    default:
      return false;
  }
}

RouteKeyType IpGenRouteKey::kind() const {
  bool const v6 = af() == Netcore::AddressFamily::ipv6;
  if (!v6 && af() != Netcore::AddressFamily::ipv4) return RouteKeyType::invalid;
  if (isWildcard()) return v6 ? RouteKeyType::ipv6Wildcard : RouteKeyType::ipv4Wildcard;
  if (isStarG()) return v6 ? RouteKeyType::ipv6StarG : RouteKeyType::ipv4StarG;
  return v6 ? RouteKeyType::ipv6SG : RouteKeyType::ipv4SG;
}

// Built as a string: a stream per key cost more than the formatting itself
// on paths that record every route they program.
std::string IpGenRouteKey::pretty() const {
  std::string out = "(";
  if (source_.len() == 0 && source_.address().isZero())
    out += '*';
  else
    prettyPrefix(out, source_);
  out += ", ";
  prettyPrefix(out, group_);
  out += ')';
  return out;
}

std::size_t IpGenRouteKey::hash() const {
  return static_cast<std::size_t>(Vex::mixHash(static_cast<std::uint64_t>(source_.hash())) ^ group_.hash());
}

std::ostream& operator<<(std::ostream& os, IpGenRouteKey const& k) { return os << k.pretty(); }

void strepOut(std::ostream& os, IpGenRouteKey const& k) {
  os << kRouteKeyHead;
  strepOut(os, k.source());
  os << ", 'group': ";
  strepOut(os, k.group());
  os << "})";
}

IpGenRouteKey strepIn(Vex::StrepParser& p, Vex::StrepTag<IpGenRouteKey>) {
  p.skipSpace();
  p.expect(kRouteKeyHead);
  auto source = Vex::parseFrom<Netcore::IpGenPrefix>(p);
  p.expect(", 'group': ");
  auto group = Vex::parseFrom<Netcore::IpGenPrefix>(p);
  p.expect("})");
  return IpGenRouteKey(source, group);
}

std::ostream& operator<<(std::ostream& os, Counter const& c) {
  strepOut(os, c);
  return os;
}

void strepOut(std::ostream& os, Counter const& c) {
  os << kCounterHead;
  strepOut(os, c.routeKey());
  os << ", 'value': ";
  Vex::strepOut(os, c.value());
  os << ", 'updateTime': ";
  Vex::strepOut(os, c.updateTime());
  os << ", 'active': ";
  Vex::strepOut(os, c.active());
  os << "})";
}

Counter strepIn(Vex::StrepParser& p, Vex::StrepTag<Counter>) {
  p.skipSpace();
  p.expect(kCounterHead);
  auto key = Vex::parseFrom<IpGenRouteKey>(p);
  p.expect(", 'value': ");
  auto value = Vex::parseFrom<std::int64_t>(p);
  p.expect(", 'updateTime': ");
  auto time = Vex::parseFrom<double>(p);
  p.expect(", 'active': ");
  auto active = Vex::parseFrom<bool>(p);
  p.expect("})");
  return Counter(key, value, time, active);
}

}  // namespace Routing::Multicast::Fib
