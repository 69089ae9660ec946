#include "kernel/MrouteSocket.h"

// clang-format off
#include <netinet/in.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>
// clang-format on
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace FalKernel {

namespace {

int result(int rc) { return rc == 0 ? 0 : errno; }

in_addr v4(Netcore::IpGenAddr const& a) {
  in_addr out{};
  std::memcpy(&out.s_addr, a.bytes().data(), 4);
  return out;
}

sockaddr_in6 v6(Netcore::IpGenAddr const& a) {
  sockaddr_in6 out{};
  out.sin6_family = AF_INET6;
  std::memcpy(out.sin6_addr.s6_addr, a.bytes().data(), 16);
  return out;
}

}  // namespace

MrouteSocket::SocketType MrouteSocket::socketType(Netcore::AddressFamily af) {
  if (af == Netcore::AddressFamily::ipv6) return {AF_INET6, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMPV6};
  return {AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_IGMP};
}

MrouteSocket::MrouteSocket(Netcore::AddressFamily af, std::uint32_t table, int fd) : fd_(fd), table_(table), af_(af) {}

MrouteSocket::~MrouteSocket() {
  if (fd_ >= 0) ::close(fd_);
}

int MrouteSocket::start() {
  if (fd_ < 0) return EBADF;
  int const on = 1;
  std::uint32_t const table = table_;
  if (af_ == Netcore::AddressFamily::ipv6) {
    if (int const rc = result(::setsockopt(fd_, IPPROTO_IPV6, MRT6_TABLE, &table, sizeof table))) return rc;
    return result(::setsockopt(fd_, IPPROTO_IPV6, MRT6_INIT, &on, sizeof on));
  }
  if (int const rc = result(::setsockopt(fd_, IPPROTO_IP, MRT_TABLE, &table, sizeof table))) return rc;
  return result(::setsockopt(fd_, IPPROTO_IP, MRT_INIT, &on, sizeof on));
}

int MrouteSocket::addVif(int vif, int ifindex) {
  if (af_ == Netcore::AddressFamily::ipv6) {
    mif6ctl c{};
    c.mif6c_mifi = static_cast<mifi_t>(vif);
    c.mif6c_pifi = static_cast<std::uint16_t>(ifindex);
    c.vifc_threshold = 1;
    return result(::setsockopt(fd_, IPPROTO_IPV6, MRT6_ADD_MIF, &c, sizeof c));
  }
  vifctl c{};
  c.vifc_vifi = static_cast<vifi_t>(vif);
  c.vifc_flags = VIFF_USE_IFINDEX;
  c.vifc_threshold = 1;
  c.vifc_lcl_ifindex = ifindex;
  return result(::setsockopt(fd_, IPPROTO_IP, MRT_ADD_VIF, &c, sizeof c));
}

int MrouteSocket::delVif(int vif) {
  if (af_ == Netcore::AddressFamily::ipv6) {
    mifi_t const m = static_cast<mifi_t>(vif);
    return result(::setsockopt(fd_, IPPROTO_IPV6, MRT6_DEL_MIF, &m, sizeof m));
  }
  vifctl c{};
  c.vifc_vifi = static_cast<vifi_t>(vif);
  return result(::setsockopt(fd_, IPPROTO_IP, MRT_DEL_VIF, &c, sizeof c));
}

int MrouteSocket::addMfc(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, int parent, VifSet outputs) {
  if (af_ == Netcore::AddressFamily::ipv6) {
    mf6cctl c{};
    c.mf6cc_origin = v6(source);
    c.mf6cc_mcastgrp = v6(group);
    c.mf6cc_parent = static_cast<mifi_t>(parent);
    for (int v = 0; v < kMaxVifs; ++v) {
      if (outputs.test(static_cast<std::size_t>(v))) IF_SET(v, &c.mf6cc_ifset);
    }
    return result(::setsockopt(fd_, IPPROTO_IPV6, MRT6_ADD_MFC, &c, sizeof c));
  }
  mfcctl c{};
  c.mfcc_origin = v4(source);
  c.mfcc_mcastgrp = v4(group);
  c.mfcc_parent = static_cast<vifi_t>(parent);
  // A copy leaves a VIF when the packet's TTL is above the VIF's threshold;
  // 255 keeps it off the VIF.
  std::memset(c.mfcc_ttls, 255, sizeof c.mfcc_ttls);
  for (int v = 0; v < kMaxVifs; ++v) {
    if (outputs.test(static_cast<std::size_t>(v))) c.mfcc_ttls[v] = 1;
  }
  return result(::setsockopt(fd_, IPPROTO_IP, MRT_ADD_MFC, &c, sizeof c));
}

int MrouteSocket::delMfc(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group) {
  if (af_ == Netcore::AddressFamily::ipv6) {
    mf6cctl c{};
    c.mf6cc_origin = v6(source);
    c.mf6cc_mcastgrp = v6(group);
    return result(::setsockopt(fd_, IPPROTO_IPV6, MRT6_DEL_MFC, &c, sizeof c));
  }
  mfcctl c{};
  c.mfcc_origin = v4(source);
  c.mfcc_mcastgrp = v4(group);
  return result(::setsockopt(fd_, IPPROTO_IP, MRT_DEL_MFC, &c, sizeof c));
}

int MrouteSocket::counts(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, Counts& out) const {
  if (af_ == Netcore::AddressFamily::ipv6) {
    sioc_sg_req6 r{};
    r.src = v6(source);
    r.grp = v6(group);
    if (::ioctl(fd_, SIOCGETSGCNT_IN6, &r) != 0) return errno;
    out = {r.pktcnt, r.bytecnt, r.wrong_if};
    return 0;
  }
  sioc_sg_req r{};
  r.src = v4(source);
  r.grp = v4(group);
  if (::ioctl(fd_, SIOCGETSGCNT, &r) != 0) return errno;
  out = {r.pktcnt, r.bytecnt, r.wrong_if};
  return 0;
}

std::size_t MrouteSocket::drain() {
  std::size_t n = 0;
  char buf[2048];
  while (fd_ >= 0 && ::recv(fd_, buf, sizeof buf, MSG_DONTWAIT) >= 0) ++n;
  return n;
}

}  // namespace FalKernel
