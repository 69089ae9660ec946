#pragma once
// FalKernel::MnlChannel: an rtnetlink socket (libmnl) opened inside a network
// namespace, non-blocking, optionally subscribed to multicast groups.
//
// The namespace is entered only for the socket's creation (KernelNetns): a
// netlink socket stays bound to the namespace it was made in, so the calling
// thread returns to its own namespace at once and everything else keeps
// running there.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kernel/netlink/RtnlChannel.h"

struct mnl_socket;

namespace FalKernel {

class MnlChannel : public RtnlChannel {
 public:
  struct Options {
    // Named namespace (as `ip netns` names it, under /var/run/netns), or a
    // path to a namespace file; empty: the caller's own namespace.
    std::string netns;
    // RTNLGRP_* groups to join.
    std::vector<unsigned> groups;
    // Receive buffer in bytes; 0 keeps the system default. Set with
    // SO_RCVBUFFORCE when the process may, else capped by the system.
    int receiveBuffer = 0;
  };

  // Throws std::system_error naming the step that failed (and the namespace).
  static std::unique_ptr<MnlChannel> open(Options const& options);
  ~MnlChannel() override;

  int fd() const override;
  std::uint32_t portId() const override;
  int send(nlmsghdr const* request) override;
  ssize_t receive(void* buf, std::size_t len) override;

 private:
  explicit MnlChannel(mnl_socket* socket) : socket_(socket) {}
  mnl_socket* socket_;
};

}  // namespace FalKernel
