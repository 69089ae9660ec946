#include "kernel/netlink/RtnlParser.h"

#include <array>
#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>

namespace FalKernel {

namespace {

using Netcore::AddressFamily;

// Attributes by type, after libmnl has checked each one's size.
template <int Max>
struct AttrTable {
  std::array<nlattr const*, Max + 1> at{};
  bool malformed = false;
};

int routeAttr(nlattr const* a, void* data) {
  auto* t = static_cast<AttrTable<RTA_MAX>*>(data);
  int const type = mnl_attr_get_type(a);
  if (mnl_attr_type_valid(a, RTA_MAX) < 0) return MNL_CB_OK;  // newer than these headers: not ours
  switch (type) {
    case RTA_TABLE:
    case RTA_IIF:
      if (mnl_attr_validate(a, MNL_TYPE_U32) < 0) t->malformed = true;
      break;
    case RTA_MULTIPATH:
      if (mnl_attr_validate(a, MNL_TYPE_BINARY) < 0) t->malformed = true;
      break;
    default:
      break;
  }
  t->at[type] = a;
  return MNL_CB_OK;
}

int linkAttr(nlattr const* a, void* data) {
  auto* t = static_cast<AttrTable<IFLA_MAX>*>(data);
  int const type = mnl_attr_get_type(a);
  if (mnl_attr_type_valid(a, IFLA_MAX) < 0) return MNL_CB_OK;
  switch (type) {
    case IFLA_IFNAME:
      if (mnl_attr_validate(a, MNL_TYPE_NUL_STRING) < 0) t->malformed = true;
      break;
    case IFLA_OPERSTATE:
      if (mnl_attr_validate(a, MNL_TYPE_U8) < 0) t->malformed = true;
      break;
    default:
      break;
  }
  t->at[type] = a;
  return MNL_CB_OK;
}

// An address attribute of the family's size; nullopt when it has another.
std::optional<Netcore::IpGenAddr> address(nlattr const* a, AddressFamily af) {
  std::size_t const want = af == AddressFamily::ipv6 ? 16 : 4;
  if (mnl_attr_get_payload_len(a) != want) return std::nullopt;
  auto const* p = static_cast<std::uint8_t const*>(mnl_attr_get_payload(a));
  if (af == AddressFamily::ipv4) {
    std::uint32_t const host = (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) | p[3];
    return Netcore::IpGenAddr::v4(host);
  }
  std::array<std::uint8_t, 16> bytes;
  std::memcpy(bytes.data(), p, bytes.size());
  return Netcore::IpGenAddr::v6(bytes);
}

Netcore::IpGenAddr zero(AddressFamily af) {
  return af == AddressFamily::ipv6 ? Netcore::IpGenAddr::v6({}) : Netcore::IpGenAddr::v4(0);
}

}  // namespace

std::optional<MfcEntry> RtnlParser::mfc(nlmsghdr const* nlh) {
  if (nlh->nlmsg_type != RTM_NEWROUTE && nlh->nlmsg_type != RTM_DELROUTE) return std::nullopt;
  if (nlh->nlmsg_len < mnl_nlmsg_size(sizeof(rtmsg))) return std::nullopt;
  auto const* rtm = static_cast<rtmsg const*>(mnl_nlmsg_get_payload(nlh));
  MfcEntry e;
  if (rtm->rtm_family == RTNL_FAMILY_IPMR) {
    e.af = AddressFamily::ipv4;
  } else if (rtm->rtm_family == RTNL_FAMILY_IP6MR) {
    e.af = AddressFamily::ipv6;
  } else {
    return std::nullopt;
  }
  AttrTable<RTA_MAX> tb;
  if (mnl_attr_parse(nlh, sizeof(rtmsg), routeAttr, &tb) != MNL_CB_OK || tb.malformed) return std::nullopt;
  e.table = tb.at[RTA_TABLE] ? mnl_attr_get_u32(tb.at[RTA_TABLE]) : rtm->rtm_table;
  e.unresolved = (rtm->rtm_flags & RTNH_F_UNRESOLVED) != 0;
  e.source = zero(e.af);
  e.group = zero(e.af);
  if (tb.at[RTA_SRC]) {
    auto a = address(tb.at[RTA_SRC], e.af);
    if (!a) return std::nullopt;
    e.source = *a;
  }
  if (tb.at[RTA_DST]) {
    auto a = address(tb.at[RTA_DST], e.af);
    if (!a) return std::nullopt;
    e.group = *a;
  }
  if (tb.at[RTA_IIF]) e.iif = static_cast<int>(mnl_attr_get_u32(tb.at[RTA_IIF]));
  if (nlattr const* mp = tb.at[RTA_MULTIPATH]) {
    auto const* nh = static_cast<rtnexthop const*>(mnl_attr_get_payload(mp));
    int len = static_cast<int>(mnl_attr_get_payload_len(mp));
    // RTNH_OK reads the next hop's length before it looks at what is left.
    for (; len >= static_cast<int>(sizeof(rtnexthop)) && RTNH_OK(nh, len);
         len -= RTNH_ALIGN(nh->rtnh_len), nh = RTNH_NEXT(nh)) {
      e.oifs.push_back(nh->rtnh_ifindex);
    }
    if (len != 0) return std::nullopt;  // a trailing piece that is no next hop
  }
  return e;
}

std::optional<LinkEntry> RtnlParser::link(nlmsghdr const* nlh) {
  if (nlh->nlmsg_type != RTM_NEWLINK && nlh->nlmsg_type != RTM_DELLINK) return std::nullopt;
  if (nlh->nlmsg_len < mnl_nlmsg_size(sizeof(ifinfomsg))) return std::nullopt;
  auto const* ifi = static_cast<ifinfomsg const*>(mnl_nlmsg_get_payload(nlh));
  AttrTable<IFLA_MAX> tb;
  if (mnl_attr_parse(nlh, sizeof(ifinfomsg), linkAttr, &tb) != MNL_CB_OK || tb.malformed) return std::nullopt;
  if (!tb.at[IFLA_IFNAME]) return std::nullopt;
  LinkEntry l;
  l.index = ifi->ifi_index;
  l.name = mnl_attr_get_str(tb.at[IFLA_IFNAME]);
  l.adminUp = (ifi->ifi_flags & IFF_UP) != 0;
  l.operState = tb.at[IFLA_OPERSTATE] ? mnl_attr_get_u8(tb.at[IFLA_OPERSTATE]) : 0;
  return l;
}

}  // namespace FalKernel
