#include "tests/doubles/RtnlMessages.h"

#include <cstring>

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>

namespace FalTest {

namespace {

void putAddress(nlmsghdr* nlh, std::uint16_t type, Netcore::IpGenAddr const& a) {
  mnl_attr_put(nlh, type, a.isV6() ? 16 : 4, a.bytes().data());
}

}  // namespace

nlmsghdr* RtnlMessages::begin(std::uint16_t type, Header h) {
  msg_.assign(MNL_SOCKET_BUFFER_SIZE, 0);
  nlmsghdr* nlh = mnl_nlmsg_put_header(msg_.data());
  nlh->nlmsg_type = type;
  nlh->nlmsg_seq = h.seq;
  nlh->nlmsg_pid = h.portId;
  nlh->nlmsg_flags = h.flags;
  return nlh;
}

void RtnlMessages::end() {
  auto const* nlh = reinterpret_cast<nlmsghdr const*>(msg_.data());
  buf_.insert(buf_.end(), msg_.begin(), msg_.begin() + NLMSG_ALIGN(nlh->nlmsg_len));
}

void RtnlMessages::mfc(std::uint16_t type, FalKernel::MfcEntry const& e, Header h) {
  nlmsghdr* nlh = begin(type, h);
  auto* rtm = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(rtmsg)));
  bool const v6 = e.af == Netcore::AddressFamily::ipv6;
  rtm->rtm_family = v6 ? RTNL_FAMILY_IP6MR : RTNL_FAMILY_IPMR;
  rtm->rtm_dst_len = rtm->rtm_src_len = v6 ? 128 : 32;
  rtm->rtm_table = e.table < 256 ? static_cast<std::uint8_t>(e.table) : static_cast<std::uint8_t>(RT_TABLE_COMPAT);
  rtm->rtm_protocol = RTPROT_MROUTED;
  rtm->rtm_type = RTN_MULTICAST;
  if (e.unresolved) rtm->rtm_flags |= RTNH_F_UNRESOLVED;
  mnl_attr_put_u32(nlh, RTA_TABLE, e.table);
  putAddress(nlh, RTA_SRC, e.source);
  putAddress(nlh, RTA_DST, e.group);
  if (!e.unresolved) {
    if (e.iif != 0) mnl_attr_put_u32(nlh, RTA_IIF, static_cast<std::uint32_t>(e.iif));
    std::vector<rtnexthop> hops;
    for (int oif : e.oifs) {
      rtnexthop nh{};
      nh.rtnh_len = sizeof(rtnexthop);
      nh.rtnh_hops = 1;
      nh.rtnh_ifindex = oif;
      hops.push_back(nh);
    }
    mnl_attr_put(nlh, RTA_MULTIPATH, hops.size() * sizeof(rtnexthop), hops.data());
  }
  end();
}

void RtnlMessages::link(std::uint16_t type, FalKernel::LinkEntry const& l, Header h) {
  nlmsghdr* nlh = begin(type, h);
  auto* ifi = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(ifinfomsg)));
  ifi->ifi_family = AF_UNSPEC;
  ifi->ifi_index = l.index;
  ifi->ifi_flags = l.adminUp ? IFF_UP : 0;
  mnl_attr_put_strz(nlh, IFLA_IFNAME, l.name.c_str());
  mnl_attr_put_u8(nlh, IFLA_OPERSTATE, l.operState);
  end();
}

void RtnlMessages::done(Header h) {
  nlmsghdr* nlh = begin(NLMSG_DONE, h);
  int zero = 0;
  mnl_nlmsg_put_extra_header(nlh, sizeof zero);
  end();
}

void RtnlMessages::error(int err, Header h) {
  nlmsghdr* nlh = begin(NLMSG_ERROR, h);
  auto* e = static_cast<nlmsgerr*>(mnl_nlmsg_put_extra_header(nlh, sizeof(nlmsgerr)));
  e->error = -err;
  end();
}

}  // namespace FalTest
