#include "kernel/VethPorts.h"

#include <linux/fib_rules.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <netlink/route/link.h>
#include <netlink/route/link/veth.h>
#include <netlink/route/rule.h>

#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sstream>

#include "kernel/KernelTrace.h"
#include "kernel/MrouteTable.h"

#ifndef RTNL_FAMILY_IPMR
#define RTNL_FAMILY_IPMR 128
#endif
#ifndef RTNL_FAMILY_IP6MR
#define RTNL_FAMILY_IP6MR 129
#endif

namespace FalKernel {

namespace {

constexpr char const* kSource = "FalKernelVethPorts";
constexpr std::chrono::milliseconds kOperUpTimeout{2000};

struct LinkDeleter {
  void operator()(rtnl_link* l) const { rtnl_link_put(l); }
};
using LinkPtr = std::unique_ptr<rtnl_link, LinkDeleter>;

int ifindexOf(nl_sock* sock, std::string const& name) {
  rtnl_link* link = nullptr;
  if (rtnl_link_get_kernel(sock, 0, name.c_str(), &link) < 0 || !link) return 0;
  int const ifindex = rtnl_link_get_ifindex(link);
  rtnl_link_put(link);
  return ifindex;
}

}  // namespace

VethPorts::VethPorts(KernelNetns const& netns) : netns_(netns) {
  // Packets come from sources no route leads back to; reverse-path filtering
  // would drop them before multicast routing sees them. New devices take
  // "default", and the kernel applies the larger of "all" and the device's.
  for (char const* conf : {"all", "default"}) {
    netns_.sysctlIs(std::string("net/ipv4/conf/") + conf + "/rp_filter", "0");
  }
  // No duplicate-address probing and router solicitations on the new
  // devices: they would only add frames to the captures.
  netns_.sysctlIs("net/ipv6/conf/default/accept_dad", "0");
  netns_.sysctlIs("net/ipv6/conf/default/router_solicitations", "0");
  {
    KernelNetns::Inside inside(netns_);
    sock_ = nl_socket_alloc();
    if (!sock_) throw std::system_error(ENOMEM, std::generic_category(), "nl_socket_alloc");
    if (int const rc = nl_connect(sock_, NETLINK_ROUTE); rc < 0) {
      nl_socket_free(sock_);
      sock_ = nullptr;
      throw std::system_error(EIO, std::generic_category(), std::string("rtnetlink connect: ") + nl_geterror(rc));
    }
  }
}

VethPorts::~VethPorts() {
  if (!sock_) return;
  if (!netns_.owned()) removeAll();
  nl_socket_free(sock_);
}

// Deleting one end of a pair deletes both.
void VethPorts::removeAll() {
  auto remove = [this](Link const& l) {
    LinkPtr link(rtnl_link_alloc());
    if (!link) return;
    rtnl_link_set_ifindex(link.get(), l.ifindex);
    if (int const rc = rtnl_link_delete(sock_, link.get()); rc < 0) {
      KERNEL_TRACE(1, kSource, "cannot remove veth pair " << l.name << ": " << nl_geterror(rc));
    }
  };
  for (auto const& [key, link] : inputs_) {
    if (key.first != 0) rulesIs(link.name, key.first, false);
    remove(link);
  }
  for (auto const& [output, link] : outputs_) remove(link);
  inputs_.clear();
  outputs_.clear();
}

std::string VethPorts::outputName(MrouteLib::PortVlan output) {
  std::string name = std::to_string(output.port().number());
  if (output.vlan().value() != 0) {
    name += 'v';
    name += std::to_string(output.vlan().value());
  }
  return name;
}

std::string VethPorts::inputName(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) {
  return std::to_string(vrfId) + "v" + std::to_string(vlan.value());
}

std::optional<VethPorts::Link> VethPorts::makePair(std::string const& name, std::string const& peerName) {
  LinkPtr link(rtnl_link_veth_alloc());
  if (!link) return std::nullopt;
  rtnl_link_set_name(link.get(), name.c_str());
  rtnl_link* peer = rtnl_link_veth_get_peer(link.get());
  rtnl_link_set_name(peer, peerName.c_str());
  rtnl_link_put(peer);
  if (int const rc = rtnl_link_add(sock_, link.get(), NLM_F_CREATE | NLM_F_EXCL); rc < 0) {
    KERNEL_TRACE(1, kSource, "cannot make veth pair " << name << " / " << peerName << ": " << nl_geterror(rc));
    return std::nullopt;
  }
  Link made{name, ifindexOf(sock_, name), peerName, ifindexOf(sock_, peerName)};
  if (made.ifindex == 0 || made.peerIfindex == 0) {
    KERNEL_TRACE(1, kSource, "veth pair " << name << " / " << peerName << " made but not found");
    return std::nullopt;
  }
  // The send and capture ends are wire, not router: with IPv6 on, the
  // namespace-wide IPv6 multicast forwarding would look every captured copy
  // up again (and count it as arrived on a wrong interface).
  netns_.sysctlIs("net/ipv6/conf/" + peerName + "/disable_ipv6", "1");
  if (!linkUpIs(made.ifindex, true) || !linkUpIs(made.peerIfindex, true)) return std::nullopt;
  // Until the kernel has run the pair's carrier change, both ends still
  // drop what they are given.
  if (!operUpWait(made.ifindex) || !operUpWait(made.peerIfindex)) {
    KERNEL_TRACE(1, kSource, "veth pair " << name << " / " << peerName << " did not come up within "
                                          << kOperUpTimeout.count() << " ms");
    return std::nullopt;
  }
  KERNEL_TRACE(6, kSource, "made veth pair " << name << " (" << made.ifindex << ") / " << peerName << " ("
                                             << made.peerIfindex << ")");
  return made;
}

bool VethPorts::rulesIs(std::string const& iif, std::uint16_t vrfId, bool add) {
  for (int family : {RTNL_FAMILY_IPMR, RTNL_FAMILY_IP6MR}) {
    std::uint32_t const table =
        mrouteTableOf(vrfId, family == RTNL_FAMILY_IP6MR ? Netcore::AddressFamily::ipv6 : Netcore::AddressFamily::ipv4);
    rtnl_rule* rule = rtnl_rule_alloc();
    if (!rule) return false;
    rtnl_rule_set_family(rule, family);
    rtnl_rule_set_iif(rule, iif.c_str());
    rtnl_rule_set_table(rule, table);
    rtnl_rule_set_action(rule, FR_ACT_TO_TBL);
    int const rc = add ? rtnl_rule_add(sock_, rule, NLM_F_CREATE) : rtnl_rule_delete(sock_, rule, 0);
    rtnl_rule_put(rule);
    if (rc < 0) {
      KERNEL_TRACE(1, kSource, "cannot " << (add ? "add" : "delete") << " multicast rule iif " << iif << " lookup " << table << " (family " << family
                                                               << "): " << nl_geterror(rc));
      return false;
    }
  }
  return true;
}

int VethPorts::outputIfindex(MrouteLib::PortVlan output) {
  if (auto it = outputs_.find(output); it != outputs_.end()) return it->second.ifindex;
  std::string const suffix = outputName(output);
  auto made = makePair("out" + suffix, "cap" + suffix);
  if (!made) return 0;
  return outputs_.emplace(output, std::move(*made)).first->second.ifindex;
}

int VethPorts::inputIfindex(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) {
  std::pair<std::uint16_t, std::uint16_t> const key{vrfId, vlan.value()};
  if (auto it = inputs_.find(key); it != inputs_.end()) return it->second.ifindex;
  std::string const suffix = inputName(vrfId, vlan);
  auto made = makePair("in" + suffix, "src" + suffix);
  if (!made) return 0;
  if (vrfId != 0 && !rulesIs(made->name, vrfId)) return 0;
  return inputs_.emplace(key, std::move(*made)).first->second.ifindex;
}

int VethPorts::openSocket(int domain, int type, int protocol) { return netns_.openSocket(domain, type, protocol); }

VethPorts::Link const* VethPorts::output(MrouteLib::PortVlan output) const {
  auto it = outputs_.find(output);
  return it == outputs_.end() ? nullptr : &it->second;
}

VethPorts::Link const* VethPorts::input(std::uint16_t vrfId, Bridging::VlanIdOrNone vlan) const {
  auto it = inputs_.find({vrfId, vlan.value()});
  return it == inputs_.end() ? nullptr : &it->second;
}

std::optional<MrouteLib::PortVlan> VethPorts::outputOfPeer(int peerIfindex) const {
  for (auto const& [pv, link] : outputs_) {
    if (link.peerIfindex == peerIfindex) return pv;
  }
  return std::nullopt;
}

bool VethPorts::operUpWait(int ifindex) {
  auto const deadline = std::chrono::steady_clock::now() + kOperUpTimeout;
  for (;;) {
    rtnl_link* l = nullptr;
    if (rtnl_link_get_kernel(sock_, ifindex, nullptr, &l) < 0 || !l) return false;
    bool const up = rtnl_link_get_operstate(l) == IF_OPER_UP;
    rtnl_link_put(l);
    if (up) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    ::poll(nullptr, 0, 1);
  }
}

bool VethPorts::linkUpIs(int ifindex, bool up) {
  LinkPtr current;
  {
    rtnl_link* l = nullptr;
    if (rtnl_link_get_kernel(sock_, ifindex, nullptr, &l) < 0 || !l) return false;
    current.reset(l);
  }
  LinkPtr change(rtnl_link_alloc());
  if (up) {
    rtnl_link_set_flags(change.get(), IFF_UP);
  } else {
    rtnl_link_unset_flags(change.get(), IFF_UP);
  }
  if (int const rc = rtnl_link_change(sock_, current.get(), change.get(), 0); rc < 0) {
    KERNEL_TRACE(1, kSource, "cannot set link " << ifindex << (up ? " up: " : " down: ") << nl_geterror(rc));
    return false;
  }
  return true;
}

bool VethPorts::portOperIs(Netcore::IntfId port, bool up) {
  bool ok = true;
  for (auto const& [pv, link] : outputs_) {
    if (pv.port() == port) ok = linkUpIs(link.ifindex, up) && (!up || operUpWait(link.ifindex)) && ok;
  }
  return ok;
}

}  // namespace FalKernel
