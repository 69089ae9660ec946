#include "kernel/KernelNetns.h"

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace FalKernel {

namespace {

int openCurrent() {
  int const fd = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "open /proc/thread-self/ns/net");
  return fd;
}

// Returning to the namespace the thread came from cannot fail short of a
// broken kernel; going on in the wrong namespace would program the host.
void enterOrDie(int fd) {
  if (::setns(fd, CLONE_NEWNET) != 0) {
    std::fprintf(stderr, "FalKernel::KernelNetns: cannot return to the original network namespace: %s\n",
                 std::strerror(errno));
    std::abort();
  }
}

void loopbackUp() {
  int const s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (s < 0) return;
  ifreq ifr{};
  std::strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
  if (::ioctl(s, SIOCGIFFLAGS, &ifr) == 0) {
    ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
    ::ioctl(s, SIOCSIFFLAGS, &ifr);
  }
  ::close(s);
}

}  // namespace

KernelNetns::Inside::Inside(KernelNetns const& netns) : home_(openCurrent()) {
  if (::setns(netns.fd(), CLONE_NEWNET) != 0) {
    int const err = errno;
    ::close(home_);
    throw std::system_error(err, std::generic_category(), "setns into the chip's network namespace");
  }
}

KernelNetns::Inside::~Inside() {
  enterOrDie(home_);
  ::close(home_);
}

KernelNetns::KernelNetns() {
  int const home = openCurrent();
  if (::unshare(CLONE_NEWNET) != 0) {
    int const err = errno;
    ::close(home);
    throw std::system_error(err, std::generic_category(), "unshare(CLONE_NEWNET)");
  }
  try {
    fd_ = openCurrent();
    loopbackUp();
  } catch (...) {
    enterOrDie(home);
    ::close(home);
    throw;
  }
  enterOrDie(home);
  ::close(home);
}

KernelNetns::KernelNetns(std::string const& existing) : owned_(false) {
  std::string const path = existing.find('/') == std::string::npos ? "/var/run/netns/" + existing : existing;
  fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "open network namespace " + path);
}

KernelNetns::~KernelNetns() {
  if (fd_ >= 0) ::close(fd_);
}

int KernelNetns::openSocket(int domain, int type, int protocol) const {
  Inside inside(*this);
  return ::socket(domain, type, protocol);
}

void KernelNetns::sysctlIs(std::string const& path, std::string const& value) const {
  Inside inside(*this);
  std::string const full = "/proc/sys/" + path;
  int const fd = ::open(full.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), "open " + full);
  ssize_t const n = ::write(fd, value.data(), value.size());
  int const err = errno;
  ::close(fd);
  if (n != static_cast<ssize_t>(value.size())) throw std::system_error(err, std::generic_category(), "write " + full);
}

std::optional<std::string> KernelNetns::unavailable() {
  try {
    KernelNetns probe;
    int const s = probe.openSocket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_IGMP);
    if (s < 0) {
      return std::string("cannot open a multicast routing socket (") + std::strerror(errno) +
             "): the kernel chip needs root (CAP_NET_ADMIN and CAP_NET_RAW)";
    }
    ::close(s);
    return std::nullopt;
  } catch (std::system_error const& e) {
    if (e.code().value() == EPERM) {
      return "the kernel chip needs root (CAP_SYS_ADMIN to make its network namespace, CAP_NET_ADMIN to program it)";
    }
    return std::string("cannot make a network namespace for the kernel chip: ") + e.what();
  }
}

}  // namespace FalKernel
