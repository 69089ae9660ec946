#include "kernel/netlink/MnlChannel.h"

#include <cerrno>
#include <system_error>

#include <libmnl/libmnl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "kernel/KernelNetns.h"

namespace FalKernel {

namespace {

[[noreturn]] void fail(std::string const& what) { throw std::system_error(errno, std::generic_category(), what); }

constexpr int kSocketType = SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC;

// The socket, made in the namespace (it stays bound to it).
mnl_socket* openSocket(std::string const& netns) {
  int const fd = netns.empty() ? ::socket(AF_NETLINK, kSocketType, NETLINK_ROUTE)
                               : KernelNetns(netns).openSocket(AF_NETLINK, kSocketType, NETLINK_ROUTE);
  if (fd < 0) fail("netlink socket" + (netns.empty() ? std::string() : " in namespace " + netns));
  mnl_socket* s = mnl_socket_fdopen(fd);
  if (!s) {
    ::close(fd);
    fail("netlink socket");
  }
  return s;
}

}  // namespace

std::unique_ptr<MnlChannel> MnlChannel::open(Options const& options) {
  std::unique_ptr<MnlChannel> c(new MnlChannel(openSocket(options.netns)));
  if (mnl_socket_bind(c->socket_, 0, MNL_SOCKET_AUTOPID) < 0) fail("bind netlink socket");
  for (unsigned group : options.groups) {
    int g = static_cast<int>(group);
    if (mnl_socket_setsockopt(c->socket_, NETLINK_ADD_MEMBERSHIP, &g, sizeof g) < 0) {
      fail("join rtnetlink group " + std::to_string(group));
    }
  }
  if (options.receiveBuffer > 0) {
    int size = options.receiveBuffer;
    int const fd = mnl_socket_get_fd(c->socket_);
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) < 0 &&
        ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) < 0) {
      fail("set netlink receive buffer");
    }
  }
  return c;
}

MnlChannel::~MnlChannel() { mnl_socket_close(socket_); }

int MnlChannel::fd() const { return mnl_socket_get_fd(socket_); }

std::uint32_t MnlChannel::portId() const { return mnl_socket_get_portid(socket_); }

int MnlChannel::send(nlmsghdr const* request) {
  return mnl_socket_sendto(socket_, request, request->nlmsg_len) < 0 ? -errno : 0;
}

ssize_t MnlChannel::receive(void* buf, std::size_t len) {
  ssize_t const n = mnl_socket_recvfrom(socket_, buf, len);
  return n < 0 ? -errno : n;
}

}  // namespace FalKernel
