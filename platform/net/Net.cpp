#include <arpa/inet.h>

#include <charconv>
#include <cstring>

#include "platform/net/AddressFamily.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/vex/Assert.h"
#include "platform/vex/HashColl.h"

namespace Vex {
EnumType const& EnumTraits<Netcore::AddressFamily>::type() {
  static EnumType const t("Netcore::AddressFamily", {{0, "ipunknown"}, {1, "ipv4"}, {2, "ipv6"}});
  return t;
}
}  // namespace Vex

namespace Netcore {

namespace {
[[noreturn]] void bad(std::string_view what, std::string_view text) {
  throw Vex::ParseError("expected " + std::string(what) + ", got \"" + std::string(text) + "\"");
}
}  // namespace

IpGenAddr IpGenAddr::v4(std::uint32_t hostOrder) {
  IpGenAddr a;
  a.af_ = AddressFamily::ipv4;
  std::uint32_t n = htonl(hostOrder);
  std::memcpy(a.bytes_.data(), &n, 4);
  return a;
}

IpGenAddr IpGenAddr::v6(std::array<std::uint8_t, 16> const& bytes) {
  IpGenAddr a;
  a.af_ = AddressFamily::ipv6;
  a.bytes_ = bytes;
  return a;
}

IpGenAddr::IpGenAddr(std::string_view text) {
  if (text == kNoneText) return;
  std::string s(text);
  if (s.find(':') != std::string::npos) {
    if (inet_pton(AF_INET6, s.c_str(), bytes_.data()) != 1) bad("an IPv6 address", text);
    af_ = AddressFamily::ipv6;
  } else {
    if (inet_pton(AF_INET, s.c_str(), bytes_.data()) != 1) bad("an IPv4 address", text);
    af_ = AddressFamily::ipv4;
  }
}

std::uint32_t IpGenAddr::v4Addr() const {
  if (!isV4()) return 0;
  std::uint32_t n;
  std::memcpy(&n, bytes_.data(), 4);
  return ntohl(n);
}

bool IpGenAddr::isMulticast() const {
  if (isV4()) return (bytes_[0] & 0xF0) == 0xE0;
  if (isV6()) return bytes_[0] == 0xFF;
  return false;
}

bool IpGenAddr::isZero() const {
  for (auto b : bytes_)
    if (b) return false;
  return true;
}

std::string IpGenAddr::stringValue() const {
  char buf[INET6_ADDRSTRLEN];
  if (isV4()) {
    // Dotted decimal by hand: inet_ntop formats through sprintf.
    char* p = buf;
    for (std::size_t i = 0; i < 4; ++i) {
      if (i) *p++ = '.';
      p = std::to_chars(p, buf + sizeof buf, static_cast<unsigned>(bytes_[i])).ptr;
    }
    return std::string(buf, p);
  }
  if (isV6()) return inet_ntop(AF_INET6, bytes_.data(), buf, sizeof buf);
  return std::string(kNoneText);
}

IpGenAddr IpGenAddr::masked(unsigned len) const {
  IpGenAddr out = *this;
  unsigned total = isV4() ? 32 : isV6() ? 128 : 0;
  for (unsigned bit = len; bit < total; ++bit) out.bytes_[bit / 8] &= static_cast<std::uint8_t>(~(0x80U >> (bit % 8)));
  return out;
}

std::size_t IpGenAddr::hash() const {
  std::uint64_t lo, hi;
  std::memcpy(&lo, bytes_.data(), 8);
  std::memcpy(&hi, bytes_.data() + 8, 8);
  return static_cast<std::size_t>(Vex::mixHash(lo ^ Vex::mixHash(hi ^ static_cast<std::uint64_t>(af_))));
}

std::ostream& operator<<(std::ostream& os, IpGenAddr const& a) { return os << a.stringValue(); }
void strepOut(std::ostream& os, IpGenAddr const& a) { os << a.stringValue(); }
IpGenAddr strepIn(Vex::StrepParser& p, Vex::StrepTag<IpGenAddr>) { return IpGenAddr(p.token(".:")); }

IpGenPrefix::IpGenPrefix(IpGenAddr const& addr, unsigned len) {
  unsigned max = maxLen(addr.af());
  if (len > max) throw Vex::RangeException("IpGenPrefix::len > maximum prefix length not allowed");
  addr_ = addr.masked(len);
  len_ = static_cast<std::uint8_t>(len);
}

IpGenPrefix::IpGenPrefix(std::string_view text) {
  auto slash = text.find('/');
  IpGenAddr a(text.substr(0, slash));
  unsigned len = maxLen(a.af());
  if (slash != std::string_view::npos) {
    auto lt = text.substr(slash + 1);
    unsigned v = 0;
    auto r = std::from_chars(lt.data(), lt.data() + lt.size(), v);
    if (lt.empty() || r.ec != std::errc() || r.ptr != lt.data() + lt.size() || v > len) bad("a prefix length", text);
    len = v;
  }
  addr_ = a.masked(len);
  len_ = static_cast<std::uint8_t>(len);
}

std::string IpGenPrefix::stringValue() const { return addr_.stringValue() + "/" + std::to_string(len_); }

std::size_t IpGenPrefix::hash() const { return addr_.hash() ^ Vex::mixHash(len_); }

std::ostream& operator<<(std::ostream& os, IpGenPrefix const& p) { return os << p.stringValue(); }
void strepOut(std::ostream& os, IpGenPrefix const& p) { os << p.stringValue(); }
IpGenPrefix strepIn(Vex::StrepParser& p, Vex::StrepTag<IpGenPrefix>) { return IpGenPrefix(p.token(".:/")); }

namespace {
struct KindName {
  IntfId::Kind kind;
  std::string_view name;
};
constexpr KindName kKindNames[] = {{IntfId::Kind::portChannel, "Port-Channel"},
                                   {IntfId::Kind::ethernet, "Ethernet"},
                                   {IntfId::Kind::vlan, "Vlan"},
                                   {IntfId::Kind::cpu, "Cpu"}};
}  // namespace

IntfId::IntfId(std::string_view text) {
  if (text.empty()) return;
  for (auto const& kn : kKindNames) {
    if (text.substr(0, kn.name.size()) != kn.name) continue;
    auto num = text.substr(kn.name.size());
    std::uint32_t n = 0;
    if (kn.kind == Kind::cpu && num.empty()) {
      *this = IntfId(kn.kind, 0);
      return;
    }
    auto r = std::from_chars(num.data(), num.data() + num.size(), n);
    if (num.empty() || r.ec != std::errc() || r.ptr != num.data() + num.size() || n > 0xFFFFFF) break;
    *this = IntfId(kn.kind, n);
    return;
  }
  bad("an interface name (Ethernet<n>, Vlan<n>, Port-Channel<n>, Cpu)", text);
}

std::string IntfId::stringValue() const {
  for (auto const& kn : kKindNames) {
    if (kn.kind != kind() || isEmpty()) continue;
    return kn.kind == Kind::cpu ? std::string(kn.name) : std::string(kn.name) + std::to_string(number());
  }
  return isEmpty() ? std::string() : "Intf" + std::to_string(value_);
}

std::ostream& operator<<(std::ostream& os, IntfId i) { return os << i.stringValue(); }
void strepOut(std::ostream& os, IntfId i) { Vex::strepOut(os, i.stringValue()); }
IntfId strepIn(Vex::StrepParser& p, Vex::StrepTag<IntfId>) { return IntfId(Vex::parseFrom<std::string>(p)); }

}  // namespace Netcore
