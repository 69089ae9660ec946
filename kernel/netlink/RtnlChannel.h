#pragma once
// FalKernel::RtnlChannel: one rtnetlink socket as the kernel FIB source uses
// it: send a request, read what came back, one datagram at a time, never
// blocking. The real one is MnlChannel; tests give the source a channel of
// their own to play the kernel, interruptions and overflows included.
#include <cstddef>
#include <cstdint>

#include <linux/netlink.h>
#include <sys/types.h>

namespace FalKernel {

class RtnlChannel {
 public:
  virtual ~RtnlChannel() = default;
  // Readable when a datagram (or an error) waits.
  virtual int fd() const = 0;
  // The socket's netlink port id: replies to its requests carry it.
  virtual std::uint32_t portId() const = 0;
  // Sends one request; 0, or -errno.
  virtual int send(nlmsghdr const* request) = 0;
  // Reads one datagram into buf: its size, or -errno (-EAGAIN when nothing
  // waits, -ENOBUFS when the kernel dropped messages for want of room).
  virtual ssize_t receive(void* buf, std::size_t len) = 0;
};

}  // namespace FalKernel
