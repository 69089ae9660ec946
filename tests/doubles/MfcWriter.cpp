#include "tests/doubles/MfcWriter.h"

#include <cerrno>
#include <cstring>
#include <system_error>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
// After the socket headers, which the kernel's mroute headers lean on.
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "kernel/KernelNetns.h"

namespace FalTest {

namespace {

[[noreturn]] void fail(std::string const& what) { throw std::system_error(errno, std::generic_category(), what); }

void set(int fd, int level, int opt, void const* v, socklen_t len, char const* what) {
  if (::setsockopt(fd, level, opt, v, len) < 0) fail(what);
}

in_addr v4(Netcore::IpGenAddr const& a) {
  in_addr r;
  std::memcpy(&r, a.bytes().data(), 4);
  return r;
}

sockaddr_in6 v6(Netcore::IpGenAddr const& a) {
  sockaddr_in6 r{};
  r.sin6_family = AF_INET6;
  std::memcpy(&r.sin6_addr, a.bytes().data(), 16);
  return r;
}

mf6cctl mfc6(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, int parent) {
  mf6cctl m{};
  m.mf6cc_origin = v6(source);
  m.mf6cc_mcastgrp = v6(group);
  m.mf6cc_parent = static_cast<mifi_t>(parent);
  return m;
}

mfcctl mfc4(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, int parent) {
  mfcctl m{};
  m.mfcc_origin = v4(source);
  m.mfcc_mcastgrp = v4(group);
  m.mfcc_parent = static_cast<vifi_t>(parent);
  return m;
}

}  // namespace

MfcWriter::MfcWriter(std::string const& netns, std::uint32_t table)
    : netns_(std::make_unique<FalKernel::KernelNetns>(netns)) {
  fd4_ = netns_->openSocket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_IGMP);
  if (fd4_ < 0) fail("mroute socket (IPv4)");
  fd6_ = netns_->openSocket(AF_INET6, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMPV6);
  if (fd6_ < 0) {
    ::close(fd4_);
    fail("mroute socket (IPv6)");
  }
  int one = 1;
  try {
    if (table != 0) {
      set(fd4_, IPPROTO_IP, MRT_TABLE, &table, sizeof table, "MRT_TABLE");
      set(fd6_, IPPROTO_IPV6, MRT6_TABLE, &table, sizeof table, "MRT6_TABLE");
    }
    set(fd4_, IPPROTO_IP, MRT_INIT, &one, sizeof one, "MRT_INIT");
    set(fd6_, IPPROTO_IPV6, MRT6_INIT, &one, sizeof one, "MRT6_INIT");
  } catch (...) {
    ::close(fd4_);
    ::close(fd6_);
    throw;
  }
}

MfcWriter::~MfcWriter() {
  ::close(fd4_);
  ::close(fd6_);
}

void MfcWriter::vifIs(std::string const& name) {
  if (vif_.contains(name)) return;
  int index;
  {
    FalKernel::KernelNetns::Inside in(*netns_);
    index = static_cast<int>(::if_nametoindex(name.c_str()));
  }
  if (index == 0) fail("no interface " + name);
  auto const n = static_cast<std::uint16_t>(vif_.size());
  vifctl vc{};
  vc.vifc_vifi = n;
  vc.vifc_flags = VIFF_USE_IFINDEX;
  vc.vifc_threshold = 1;
  vc.vifc_lcl_ifindex = index;
  set(fd4_, IPPROTO_IP, MRT_ADD_VIF, &vc, sizeof vc, "MRT_ADD_VIF");
  mif6ctl mc{};
  mc.mif6c_mifi = n;
  mc.vifc_threshold = 1;
  mc.mif6c_pifi = static_cast<std::uint16_t>(index);
  set(fd6_, IPPROTO_IPV6, MRT6_ADD_MIF, &mc, sizeof mc, "MRT6_ADD_MIF");
  vif_.emplace(name, n);
}

int MfcWriter::vif(std::string const& name) const {
  auto it = vif_.find(name);
  if (it == vif_.end()) {
    errno = ENODEV;
    fail("no virtual interface for " + name);
  }
  return it->second;
}

void MfcWriter::mfcIs(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, std::string const& iif,
                      std::vector<std::string> const& oifs) {
  if (group.isV6()) {
    mf6cctl m = mfc6(source, group, vif(iif));
    for (auto const& o : oifs) IF_SET(vif(o), &m.mf6cc_ifset);
    set(fd6_, IPPROTO_IPV6, MRT6_ADD_MFC, &m, sizeof m, "MRT6_ADD_MFC");
    return;
  }
  mfcctl m = mfc4(source, group, vif(iif));
  for (auto const& o : oifs) m.mfcc_ttls[vif(o)] = 1;
  set(fd4_, IPPROTO_IP, MRT_ADD_MFC, &m, sizeof m, "MRT_ADD_MFC");
}

void MfcWriter::mfcDel(Netcore::IpGenAddr const& source, Netcore::IpGenAddr const& group, std::string const& iif) {
  if (group.isV6()) {
    mf6cctl const m = mfc6(source, group, vif(iif));
    set(fd6_, IPPROTO_IPV6, MRT6_DEL_MFC, &m, sizeof m, "MRT6_DEL_MFC");
    return;
  }
  mfcctl const m = mfc4(source, group, vif(iif));
  set(fd4_, IPPROTO_IP, MRT_DEL_MFC, &m, sizeof m, "MRT_DEL_MFC");
}

}  // namespace FalTest
