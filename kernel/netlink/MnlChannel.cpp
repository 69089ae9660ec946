#include "kernel/netlink/MnlChannel.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace FalKernel {

namespace {

[[noreturn]] void fail(std::string const& what) { throw std::system_error(errno, std::generic_category(), what); }

class Fd {
 public:
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd() {
    if (fd_ >= 0) ::close(fd_);
  }
  Fd(Fd const&) = delete;
  Fd& operator=(Fd const&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

std::string netnsPath(std::string const& netns) { return netns.front() == '/' ? netns : "/var/run/netns/" + netns; }

mnl_socket* openSocket() {
  mnl_socket* s = mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (!s) fail("netlink socket");
  return s;
}

// The socket, made inside the namespace; the thread goes back to its own.
mnl_socket* openIn(std::string const& netns) {
  if (netns.empty()) return openSocket();
  Fd own(::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
  if (own.get() < 0) fail("open /proc/self/ns/net");
  std::string const path = netnsPath(netns);
  Fd target(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (target.get() < 0) fail("open network namespace " + path);
  if (::setns(target.get(), CLONE_NEWNET) < 0) fail("enter network namespace " + path);
  mnl_socket* s = nullptr;
  int err = 0;
  s = mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (!s) err = errno;
  if (::setns(own.get(), CLONE_NEWNET) < 0) {
    if (s) mnl_socket_close(s);
    fail("return to the agent's network namespace");
  }
  if (!s) {
    errno = err;
    fail("netlink socket in " + path);
  }
  return s;
}

}  // namespace

std::unique_ptr<MnlChannel> MnlChannel::open(Options const& options) {
  std::unique_ptr<MnlChannel> c(new MnlChannel(openIn(options.netns)));
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
