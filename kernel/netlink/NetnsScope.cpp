#include "kernel/netlink/NetnsScope.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace FalKernel {

NetnsScope::NetnsScope(std::string const& netns) {
  if (netns.empty()) return;
  own_ = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
  if (own_ < 0) throw std::system_error(errno, std::generic_category(), "open /proc/self/ns/net");
  std::string const p = path(netns);
  int const target = ::open(p.c_str(), O_RDONLY | O_CLOEXEC);
  int const err = errno;
  if (target < 0 || ::setns(target, CLONE_NEWNET) < 0) {
    int const e = target < 0 ? err : errno;
    if (target >= 0) ::close(target);
    ::close(own_);
    throw std::system_error(e, std::generic_category(), "enter network namespace " + p);
  }
  ::close(target);
}

NetnsScope::~NetnsScope() {
  if (own_ < 0) return;
  if (::setns(own_, CLONE_NEWNET) < 0) {
    std::perror("return to the original network namespace");
    std::abort();
  }
  ::close(own_);
}

}  // namespace FalKernel
