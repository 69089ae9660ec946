#pragma once
// FalKernel::NetnsScope: the calling thread inside another network namespace
// for the scope's lifetime. Sockets made meanwhile belong to that namespace
// for good, so the agent makes its sockets there and goes back at once.
//
// The namespace is a name as `ip netns` gives it (under /var/run/netns) or a
// path to a namespace file; empty: the caller's own (nothing changes).
#include <string>

namespace FalKernel {

class NetnsScope {
 public:
  // Throws std::system_error naming the namespace.
  explicit NetnsScope(std::string const& netns);
  // Back in the namespace the thread came from (aborts if that fails: the
  // thread would go on in the wrong one).
  ~NetnsScope();
  NetnsScope(NetnsScope const&) = delete;
  NetnsScope& operator=(NetnsScope const&) = delete;

  static std::string path(std::string const& netns) {
    return netns.empty() || netns.front() == '/' ? netns : "/var/run/netns/" + netns;
  }

 private:
  int own_ = -1;
};

}  // namespace FalKernel
